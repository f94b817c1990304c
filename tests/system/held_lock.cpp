// Preloaded into the daemon: when the file /tmp/hold is there, its next allocation is met by
// SIGTERM inside a lock that the end of the process needs as well. The file's first letter says
// which: 'a', the allocator's; 's', one of SQLite's; 'f', none, but SIGTERM's handler meets a
// fault.
#include <fcntl.h>
#include <pthread.h>
#include <sqlite3.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void __libc_free(void* block);
}

namespace {

pthread_mutex_t allocator = PTHREAD_MUTEX_INITIALIZER;
bool faulty = false;

class Locked {
  public:
    Locked() { pthread_mutex_lock(&allocator); }
    ~Locked() { pthread_mutex_unlock(&allocator); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
};

// Of the file, which is gone then; 0 without one.
char first_letter() {
    char letter = 0;
    const int file = open("/tmp/hold", O_RDONLY | O_CLOEXEC);
    if (file == -1)
        return letter;
    [[maybe_unused]] const ssize_t count = read(file, &letter, 1);
    close(file);
    unlink("/tmp/hold");
    return letter;
}

}  // namespace

extern "C" void* malloc(std::size_t size) noexcept {
    const char letter = first_letter();
    if (letter == 's')
        sqlite3_mutex_enter(sqlite3_mutex_alloc(SQLITE_MUTEX_STATIC_VFS1));
    if (letter == 's' || letter == 'f') {
        faulty = letter == 'f';
        raise(SIGTERM);
    }
    const Locked locked;
    if (letter == 'a')
        raise(SIGTERM);
    return __libc_malloc(size);
}

extern "C" void free(void* block) noexcept {
    if (faulty)
        __builtin_trap();
    const Locked locked;
    __libc_free(block);
}
