// Makes the allocations of the program into which it is preloaded fail: those numbered `first` to
// `last`, counted from where `made` was set to 0 in the file /tmp/allocations, which whoever starts
// the program shares with it. The main thread's pauses of whole seconds take no time.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
}

namespace {

struct Control {
    std::atomic<long> made, first, last;
};

Control* control = nullptr;

__attribute__((constructor)) void find_control() {
    const int fd = open("/tmp/allocations", O_RDWR | O_CLOEXEC);
    void* const shared = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (shared != MAP_FAILED)
        control = static_cast<Control*>(shared);
    close(fd);
}

bool fails() {
    if (control == nullptr)
        return false;
    const long number = ++control->made;
    if (number < control->first || number > control->last)
        return false;
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(memory, size);
}

unsigned sleep(unsigned seconds) {
    if (gettid() != getpid())
        usleep(seconds * 1'000'000);
    return 0;
}
}
