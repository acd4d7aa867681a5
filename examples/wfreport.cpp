#include "morva.h"
int main(int argc, char** argv) {
    elog_init(argc, argv);
}
