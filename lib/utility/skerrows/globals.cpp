// The globals that the families share. They start empty; the family that owns one fills it.
#include "skerrows.h"

constinit int* Halt_flag = nullptr;
constinit int Halt_In_Seconds = 0;
constinit Mortician Halt_Mortician = nullptr;
constinit Grave* grave = nullptr;
pthread_mutex_t grave_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit Arr* Pflist = nullptr;
pthread_mutex_t Pflist_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit int Pf_busy = 0;
