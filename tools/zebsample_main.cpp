// zebsample: writes the built-in sample disks used by the demo and the tests.
#include <cstdio>

int main(int argc, char* argv[]) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUTFILE\n", argv[0]);
        return 22;
    }
    return 1;
}
