/* Stitches two lens pictures or movies: client LENS1 LENS2 PANORAMA */
#include <nq360.h>
#include <stdio.h>

static int failed = 1;

static void on_reply(NQ360_STATE state, const char* json) {
    printf("%d %s\n", state, json);
    failed = state != NQ360_FINISHED;
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s LENS1 LENS2 PANORAMA\n", argv[0]);
        return 2;
    }
    const int no = CORRECT_NONE;
    NQ360_export(argv[1], argv[2], argv[3], NULL, 3840, 1920, 0, no, no, no, no, no, no, 0, "2026:01:02 03:04:05", NULL,
                 on_reply, 0, 0, 0, 0, 3600, 3600);
    return failed;
}
