/* A C program against an installation: a list, an array, the register, and a CM6 round trip. */
#include <morva.h>
#include <skerrows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures;

static void check(int holds, const char* what) {
    if (holds) return;
    printf("failed: %s\n", what);
    ++failures;
}

static void check_containers(void) {
    Tbl* words = strtbl("BHZ", "BHN", "BHE", NULL);
    Arr* places = newarr(NULL);
    for (long i = 0; i < maxtbl(words); ++i) setarr(places, gettbl(words, i), addrtbl(words, i));
    Tbl* keys = keysarr(places);
    char* joined = jointbl(keys, " ");
    check(strcmp(joined, "BHE BHN BHZ") == 0, "keys in order");
    check(getarr(places, "BHE") == addrtbl(words, 2), "value of a key");
    free(joined);
    freetbl(keys, NULL);
    freearr(places, NULL);
    freetbl(words, NULL);
}

static void check_register(void) {
    const int mark = elog_mark();
    elog_log(0, "%s is number %d", "this", 1);
    char* text = elog_string(mark);
    check(strcmp(text, "consumer: this is number 1\n") == 0, "registered message");
    free(text);
    elog_flush(0, mark);
    check(elog_mark() == mark, "register cut back");
}

static void check_cm6(void) {
    const int32_t samples[] = {0, 1, 2, 3};
    char* text = NULL;
    int32_t* decoded = NULL;
    int nbytes = 0, text_size = 0, nsamp = 0, room = 0;
    cm6(samples, 4, &text, &nbytes, &text_size);
    check(nbytes == 12 && memcmp(text, "+-++\nCHK2 6\n", 12) == 0, "CM6 text");
    check(um6(text, nbytes, &decoded, &nsamp, &room) == 4, "CM6 count");
    check(memcmp(samples, decoded, sizeof samples) == 0, "CM6 samples");
    free(decoded);
    free(text);
}

int main(int argc, char** argv) {
    elog_init(argc, argv);
    check(strcmp(Program_Name, "consumer") == 0, "program name");
    check(std_now() > 1.7e9, "clock of the platform library");
    check_containers();
    check_register();
    check_cm6();
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
