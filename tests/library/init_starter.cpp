// init_starter NAME PROGRAM: becomes PROGRAM, which finds NAME as its own name.
#include <cstdio>

#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    execl(argv[2], argv[1], static_cast<char*>(nullptr));
    std::perror(argv[2]);
    return 1;
}
