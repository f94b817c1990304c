// on_board DIR PROGRAM [ARGUMENT...]: runs a program, which alone sees DIR as /quelt. The sandbox
// gives no rights to mount, but to whoever takes a world of its own; no sanitizer's thread may have
// been started in it before.
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char* argv[]) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s DIR PROGRAM [ARGUMENT...]\n", argv[0]);
        return 2;
    }
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
        mount(argv[1], "/quelt", nullptr, MS_BIND, nullptr) == 0)
        execv(argv[2], argv + 2);
    std::perror(argv[2]);
    return 126;
}
