#include "app/signals.h"

#include <syslog.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include "app/database_files.h"
#include "params/databases.h"
#include "processor/conf_log.h"
#include "processor/end_put_off.h"

volatile std::sig_atomic_t signal_in_progress = 0;

namespace {

std::optional<siginfo_t> signal_information;

struct Fault {
    int signal;
    int code;
    const char* text;
};

// SIGFPE's integer overflow is not listed, on purpose: it has no text of its own.
constexpr Fault kFaults[] = {
    {SIGILL, ILL_ILLOPC, "illegal opcode"},
    {SIGILL, ILL_ILLOPN, "illegal operand"},
    {SIGILL, ILL_ILLADR, "illegal addressing mode"},
    {SIGILL, ILL_ILLTRP, "illegal trap"},
    {SIGILL, ILL_PRVOPC, "privileged opcode"},
    {SIGILL, ILL_PRVREG, "privileged register"},
    {SIGILL, ILL_COPROC, "coprocessor error"},
    {SIGILL, ILL_BADSTK, "internal stack error"},
    {SIGFPE, FPE_INTDIV, "integer divide by zero"},
    {SIGFPE, FPE_FLTDIV, "floating-point divide by zero"},
    {SIGFPE, FPE_FLTOVF, "floating-point overflow"},
    {SIGFPE, FPE_FLTUND, "floating-point underflow"},
    {SIGFPE, FPE_FLTRES, "floating-point inexact result"},
    {SIGFPE, FPE_FLTINV, "floating-point invalid operation"},
    {SIGFPE, FPE_FLTSUB, "subscript out of range"},
    {SIGSEGV, SEGV_MAPERR, "address not mapped to object"},
    {SIGSEGV, SEGV_ACCERR, "invalid permissions for mapped object"},
    {SIGBUS, BUS_ADRALN, "invalid address alignment"},
    {SIGBUS, BUS_ADRERR, "nonexistent physical address"},
    {SIGBUS, BUS_OBJERR, "object-specific hardware error"},
};

constexpr unsigned kLimitAfterSignal_s = 3;

constexpr int kFatalSignals[] = {SIGFPE, SIGILL, SIGSEGV, SIGBUS, SIGABRT, SIGHUP, SIGTERM, SIGINT};

const char* fault_text(int signal, int code) {
    for (const Fault& fault : kFaults) {
        if (fault.signal == signal && fault.code == code)
            return fault.text;
    }
    return "unknown error";
}

bool names_an_address(int signal) {
    return signal == SIGILL || signal == SIGFPE || signal == SIGSEGV || signal == SIGBUS;
}

void log_database_error(const char* text) {
    log_category(kLogDatabases, LOG_ERR, text);
}

// The last line comes after closelog on purpose: the C library opens the log again and writes it
// under the program's own name.
[[noreturn]] void shut_down_and_exit(int status) {
    if (closeDb(ConfDB) != 1)
        log_database_error("Error al cerrar la BD config_local.sqlite\n");
    if (closeDb(TempDB) != 1)
        log_database_error("Error al cerrar la BD temp_local.sqlite\n");
    closelog();
    log_database_error("Se cierra quelt_listener por recepcion señal LINUX\n");
    std::exit(status);
}

void on_late_end(int /*signal*/) {
    _exit(1);
}

// Ends the process in a few seconds without taking a lock, whatever mask of signals it was started
// with: what the handler calls may wait for ever for a lock of the very thread that it interrupts,
// or for somebody who reads the log.
void limit_the_end(ucontext_t& interrupted) {
    struct sigaction action {};
    action.sa_handler = on_late_end;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    sigset_t late;
    sigemptyset(&late);
    sigaddset(&late, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &late, nullptr);
    sigdelset(&interrupted.uc_sigmask, SIGALRM);  // also behind an end that is put off
    alarm(kLimitAfterSignal_s);
}

// Calls what is not safe in a handler; accepted, since the process is ending anyway.
void tell_and_end() {
    const int signal = signal_in_progress;
    syslog(LOG_LOCAL0 | LOG_CRIT, "Exiting due to signal %s.", strsignal(signal));
    if (signal_information && names_an_address(signal)) {
        // The address is decimal behind its "0x"; readers of the logs are used to it.
        syslog(LOG_LOCAL0 | LOG_CRIT, "%s at address 0x%lu",
               fault_text(signal, signal_information->si_code),
               reinterpret_cast<unsigned long>(signal_information->si_addr));
    }
    shut_down_and_exit(1);
}

// A fault of our own in the middle of a log line comes again and again, until the time is up.
void on_fatal_signal(int signal, siginfo_t* information, void* context) {
    if (signal_in_progress != 0)
        return;
    signal_in_progress = signal;
    limit_the_end(*static_cast<ucontext_t*>(context));
    if (information != nullptr)
        signal_information = *information;
    EndPutOff::run(tell_and_end);
}

}  // namespace

void install_signal_handlers() {
    struct sigaction action {};
    action.sa_sigaction = on_fatal_signal;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : kFatalSignals)
        sigaction(signal, &action, nullptr);
    std::signal(SIGUSR1, SIG_IGN);
    std::signal(SIGUSR2, SIG_IGN);
}
