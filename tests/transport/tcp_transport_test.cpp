// The real transport over real sockets. Its state is plain global state, so every test wants a
// process of its own. The test is the other side of the wire: connections wait in the backlog and
// bytes in the socket, so that most cases need no second thread.
#include "transport/tcp_transport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <future>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "link/mensaje.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/wait.h"

namespace {

std::vector<useconds_t> pauses;

}  // namespace

// Takes the C library's place, so that the pauses between attempts can be counted.
extern "C" int usleep(useconds_t useconds) {
    pauses.push_back(useconds);
    return 0;
}

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr std::uint16_t kPort = 8001;
// More than the kernel takes off a writer whose reader does not read, once its buffers are small.
constexpr std::size_t kTooMuch = 1'000'000;

sockaddr_in address_of(const char* host) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(host);
    address.sin_port = htons(kPort);
    return address;
}

// One end of a connection, or a listener of the test's own.
class Socket {
  public:
    explicit Socket(int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) : fd_(fd) {}
    Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Socket(const Socket&) = delete;
    ~Socket() { close_now(); }

    [[nodiscard]] int fd() const { return fd_; }
    void close_now() {
        if (fd_ != -1)
            close(fd_);
        fd_ = -1;
    }
    // Ends the connection by a reset.
    void reset() {
        const linger at_once{1, 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close_now();
    }
    [[nodiscard]] bool readable(int milliseconds) const {
        pollfd state{fd_, POLLIN, 0};
        return poll(&state, 1, milliseconds) == 1;
    }
    void send(const Bytes& bytes) const {
        if (::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(bytes.size()))
            throw std::runtime_error("send failed");
    }
    // Everything up to the other side's close.
    [[nodiscard]] Bytes read_to_end() const {
        Bytes all;
        std::uint8_t byte = 0;
        while (readable(patience_ms()) && read(fd_, &byte, 1) == 1)
            all.push_back(byte);
        return all;
    }
    static int patience_ms() {
        return static_cast<int>(std::chrono::milliseconds(kPatience).count());
    }

  private:
    int fd_;
};

Socket connected_to(const char* host) {
    Socket master;
    const sockaddr_in address = address_of(host);
    if (connect(master.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot connect");
    return master;
}

Socket listener_at(const char* host) {
    Socket listener;
    const sockaddr_in address = address_of(host);
    if (bind(listener.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener.fd(), 5) != 0)
        throw std::runtime_error("cannot listen");
    return listener;
}

// The next connection; throws when none comes.
Socket accepted_by(const Socket& listener) {
    if (!listener.readable(Socket::patience_ms()))
        throw std::runtime_error("nobody connects");
    return Socket(accept4(listener.fd(), nullptr, nullptr, SOCK_CLOEXEC));
}

// The sockets of this process.
std::vector<int> open_sockets() {
    std::vector<int> found;
    for (int fd = 0; fd < 64; ++fd) {
        int type = 0;
        socklen_t size = sizeof type;
        if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0)
            found.push_back(fd);
    }
    return found;
}

int option_of(int fd, int level, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(fd, level, option, &value, &size);
    return value;
}

// FD_CLOEXEC per descriptor.
std::vector<int> close_on_exec(const std::vector<int>& descriptors) {
    std::vector<int> flags;
    for (const int fd : descriptors)
        flags.push_back(fcntl(fd, F_GETFD));
    return flags;
}

// The number that the next socket will get.
int next_descriptor() {
    const int fd = dup(STDIN_FILENO);
    close(fd);
    return fd;
}

// While it lives, nothing can be opened or accepted.
class NoMoreDescriptors {
  public:
    NoMoreDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{static_cast<rlim_t>(next_descriptor()), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;

  private:
    rlimit before_{};
};

// From now on the system call fails with `error` when its first argument is `lowest` or more.
void refuse(unsigned call, int error, unsigned lowest = 0) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, lowest, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{static_cast<unsigned short>(std::size(program)), program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        throw std::runtime_error("cannot filter system calls");
}

void give_loopback(const std::string& address) {
    if (std::system(("/usr/sbin/ip addr add " + address + "/32 dev lo").c_str()) != 0)
        throw std::runtime_error("cannot add " + address);
}

void keep_socket_buffers_small() {
    for (const char* const limits : {"tcp_rmem", "tcp_wmem"})
        write_file(std::string("/proc/sys/net/ipv4/") + limits, "4096 4096 8192\n");
}

// A byte, or nothing when the attempts ran out.
std::optional<int> read_byte(int timeout = 0) {
    std::uint8_t byte = 0;
    const int result = leer_byte_zondar(0, &byte, timeout);
    EXPECT_THAT(result, testing::AnyOf(0, 1));
    return result == 1 ? std::optional<int>(byte) : std::nullopt;
}

Bytes read_bytes(std::size_t count) {
    Bytes bytes;
    while (bytes.size() < count) {
        const std::optional<int> byte = read_byte();
        if (!byte)
            break;
        bytes.push_back(static_cast<std::uint8_t>(*byte));
    }
    return bytes;
}

void send_bytes(const Bytes& bytes) {
    enviar_buffer_zondar(0, bytes.data(), static_cast<unsigned>(bytes.size()));
}

// 1, 2 ... 251, 1, 2 ...: no zero, and not in step with the ring.
Bytes numbered(std::size_t count) {
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes.push_back(static_cast<std::uint8_t>(i % 251 + 1));
    return bytes;
}

void open_server() {
    SetSocketServer_zondar();
    set_zondar_servernumber(0);
    AbrirSocket_zondar();
}

// The name it unlinks is abstract, so that of a file in the current folder is another one.
TEST(ServerSetUp, RemovesNoFile) {
    write_file("/tmp/zondar_socket", "kept");
    ASSERT_EQ(chdir("/tmp"), 0);
    printed_by(open_server);
    EXPECT_EQ(read_file("/tmp/zondar_socket"), "kept");
}

// Server mode, with the test as master.
class Server : public testing::Test {
  protected:
    Server() {
        EXPECT_EQ(printed_by(open_server), (Printed{"IP:169.254.34.21\nAbrirSocketServer\n", ""}));
        const std::vector<int> sockets = open_sockets();
        EXPECT_EQ(sockets.size(), 1U);
        listening_ = sockets.at(0);
    }

    static Socket master() { return connected_to("127.0.0.1"); }

    int listening_ = -1;
};

TEST_F(Server, ListensOnAllInterfacesWithABacklogOf5AndNoOptions) {
    // State, waiting, backlog, own and other address.
    std::istringstream listeners(run_program({"/usr/bin/ss", "-Hltn4"}).out);
    EXPECT_THAT(std::vector<std::string>(std::istream_iterator<std::string>(listeners), {}),
                ElementsAre("LISTEN", "0", "5", "0.0.0.0:8001", "0.0.0.0:*"));
    EXPECT_EQ(option_of(listening_, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(option_of(listening_, SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_EQ(option_of(listening_, SOL_SOCKET, SO_REUSEPORT), 0);
    EXPECT_EQ(option_of(listening_, SOL_SOCKET, SO_KEEPALIVE), 0);
    timeval timeout{};
    socklen_t size = sizeof timeout;
    ASSERT_EQ(getsockopt(listening_, SOL_SOCKET, SO_RCVTIMEO, &timeout, &size), 0);
    EXPECT_EQ(timeout.tv_sec, 0);
    EXPECT_EQ(timeout.tv_usec, 0);
    EXPECT_EQ(fcntl(listening_, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(Server, IsReachedOnEveryAddress) {
    give_loopback("192.168.5.1");
    give_loopback("169.254.34.21");
    for (const char* const host : {"127.0.0.1", "192.168.5.1", "169.254.34.21"}) {
        connected_to(host).send(hex("5A"));
        EXPECT_EQ(read_byte(), 0x5A) << host;
        printed_by([] { EXPECT_EQ(read_byte(), std::nullopt); });
    }
}

TEST_F(Server, HandsOutByteByByteInSilence) {
    const Socket socket = master();
    socket.send(hex("A5 00 FF 7F 80"));
    EXPECT_EQ(printed_by([] { EXPECT_EQ(to_hex(read_bytes(5)), "A5 00 FF 7F 80"); }),
              (Printed{"", ""}));
    EXPECT_THAT(pauses, ElementsAre());
}

TEST_F(Server, IgnoresThePortNumber) {
    const Socket socket = master();
    socket.send(hex("01 02 03"));
    std::uint8_t byte = 0;
    for (const unsigned port : {1U, 8001U, UINT_MAX}) {
        EXPECT_EQ(leer_byte_zondar(port, &byte, 0), 1);
        const Socket collector = master();
        enviar_buffer_zondar(port, &byte, 1);
        EXPECT_EQ(collector.read_to_end(), Bytes{byte});
    }
    EXPECT_EQ(byte, 3);
}

// Neither accept nor read ends before a master gives a byte; the time-out does not count time.
TEST_F(Server, WaitsForConnectionAndByteWithoutLimit) {
    constexpr std::chrono::milliseconds moment{100};
    auto byte = std::async(std::launch::async, [] { return read_byte(0); });
    EXPECT_EQ(byte.wait_for(moment), std::future_status::timeout);
    const Socket socket = master();
    EXPECT_EQ(byte.wait_for(moment), std::future_status::timeout);
    socket.send(hex("5A"));
    EXPECT_EQ(byte.get(), 0x5A);
}

TEST_F(Server, CountsThePeersCloseAsFailedAttempt) {
    master().close_now();
    const Socket next = master();
    next.send(hex("5A"));
    std::uint8_t byte = 0x77;
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(leer_byte_zondar(0, &byte, 0), 0); }),
              (Printed{"Client Close\n", ""}));
    EXPECT_EQ(byte, 0x77) << "nothing is stored";
    EXPECT_THAT(pauses, ElementsAre(10));
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), 0x5A); }), (Printed{"", ""}));
}

TEST_F(Server, GoesOnToTheNextMasterWhileAttemptsLast) {
    for (int i = 0; i < 3; ++i)
        master().close_now();
    const Socket last = master();
    last.send(hex("5A"));
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(30), 0x5A); }),
              (Printed{"Client Close\nClient Close\nClient Close\n", ""}));
    EXPECT_THAT(pauses, ElementsAre(10, 10, 10));
}

TEST_F(Server, ClosesItsEndWhenThePeerCloses) {
    const auto before = open_sockets();
    master().close_now();
    printed_by([] { EXPECT_EQ(read_byte(), std::nullopt); });
    EXPECT_EQ(open_sockets(), before);
}

// The master of the first connection keeps it; the second one waits in the queue.
TEST_F(Server, ReadsOneConnectionAtATime) {
    const Socket first = master();
    first.send(hex("01"));
    EXPECT_EQ(read_byte(), 0x01);
    const Socket second = master();
    second.send(hex("11"));
    first.send(hex("02 03"));
    EXPECT_EQ(to_hex(read_bytes(2)), "02 03");
}

TEST_F(Server, AnswersOnAFreshConnectionNeverOnTheOneItReads) {
    const Socket reading = master();
    reading.send(hex("01 02"));
    EXPECT_EQ(read_byte(), 0x01);
    const Socket collector = master();
    EXPECT_EQ(printed_by([] { send_bytes(hex("A5 04 00 00 00 00 FC")); }),
              (Printed{"WriteSocket\nBuffer: A50400000000FC\n", ""}));
    EXPECT_EQ(to_hex(collector.read_to_end()), "A5 04 00 00 00 00 FC");
    EXPECT_FALSE(reading.readable(0));
    EXPECT_EQ(read_byte(), 0x02);
}

TEST_F(Server, GivesEachAnswerAConnectionOfItsOwn) {
    const auto before = open_sockets();
    {
        const Socket first = master();
        const Socket second = master();
        printed_by([] {
            send_bytes(hex("11"));
            send_bytes(hex("22"));
        });
        EXPECT_EQ(to_hex(first.read_to_end()), "11");
        EXPECT_EQ(to_hex(second.read_to_end()), "22");
    }
    EXPECT_EQ(open_sockets(), before);
}

TEST_F(Server, WaitsForTheMasterToCollect) {
    auto sending = std::async(std::launch::async, [] { send_bytes(hex("11")); });
    EXPECT_EQ(sending.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    EXPECT_EQ(to_hex(master().read_to_end()), "11");
}

TEST_F(Server, SendsNothingOnAConnectionToo) {
    const Socket collector = master();
    EXPECT_EQ(printed_by([] { send_bytes({}); }), (Printed{"WriteSocket\nBuffer: \n", ""}));
    EXPECT_EQ(to_hex(collector.read_to_end()), "");
}

TEST_F(Server, ReportsAnAnswerThatCouldNotBeWritten) {
    const auto before = open_sockets();
    master().reset();
    EXPECT_EQ(printed_by([] { send_bytes(hex("AB CD")); }),
              (Printed{"WriteSocket\nBuffer: ABCD\nNo he podido escribir todos los bytes\n", ""}));
    EXPECT_EQ(open_sockets(), before);
}

// The collector reads nothing and leaves in the middle of it. While the write waits, every socket
// is seen to be closed for programs that the daemon starts.
TEST_F(Server, ReportsAnAnswerWrittenInPart) {
    keep_socket_buffers_small();
    const Socket reading = master();
    reading.send(hex("01"));
    EXPECT_EQ(read_byte(), 0x01);
    Socket collector = master();
    const auto before = open_sockets();
    const Bytes answer(kTooMuch, 0xEE);
    Printed printed;
    auto sending =
        std::async(std::launch::async, [&] { printed = printed_by([&] { send_bytes(answer); }); });
    ASSERT_TRUE(collector.readable(Socket::patience_ms()));
    EXPECT_EQ(open_sockets().size(), before.size() + 1);
    EXPECT_THAT(close_on_exec(open_sockets()), Each(FD_CLOEXEC));
    collector.reset();
    sending.get();
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(printed.out.size(), 20 + 2 * kTooMuch + 39);
    EXPECT_EQ(printed.out.substr(0, 24), "WriteSocket\nBuffer: EEEE");
    EXPECT_EQ(printed.out.substr(printed.out.size() - 41),
              "EE\nNo he podido escribir todos los bytes\n");
    EXPECT_EQ(open_sockets().size(), before.size() - 1);
}

TEST_F(Server, DropsTheAnswerWhenItCannotAccept) {
    const Socket collector = master();
    EXPECT_EQ(printed_by([] {
                  const NoMoreDescriptors shortage;
                  send_bytes(hex("11"));
              }),
              (Printed{"WriteSocket\nBuffer: 11\n", "accept error: Too many open files\n"}));
    printed_by([] { send_bytes(hex("22")); });
    EXPECT_EQ(to_hex(collector.read_to_end()), "22") << "the collector gets the next one";
}

// From a failed accept on no new one is tried: every read fails, and since a failed read counts as
// a byte, the ring is handed out round and round.
TEST_F(Server, ReplaysTheRingForEverAfterAFailedAccept) {
    {
        const Socket first = master();
        first.send(hex("01 02 03 04 05"));
        EXPECT_EQ(to_hex(read_bytes(5)), "01 02 03 04 05");
    }
    printed_by([] { EXPECT_EQ(read_byte(), std::nullopt); });
    EXPECT_EQ(printed_by([] {
                  const NoMoreDescriptors shortage;
                  EXPECT_EQ(read_byte(), 0x00);
              }),
              (Printed{"", "accept error: Too many open files\nread: Bad file descriptor\n"}));

    const Socket ignored = master();
    ignored.send(hex("77"));
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), 0x00); }),
              (Printed{"", "read: Bad file descriptor\n"}));
    printed_by([] {
        // Positions 7 to 511 were never filled, 0 to 4 by the first master.
        EXPECT_EQ(read_bytes(505), Bytes(505, 0x00));
        EXPECT_EQ(to_hex(read_bytes(6)), "01 02 03 04 05 00");
    });
    EXPECT_EQ(pauses.size(), 1U) << "of the first master's close";
    printed_by([] { send_bytes(hex("11")); });
    EXPECT_EQ(to_hex(ignored.read_to_end()), "11") << "answers still go out";
}

struct StaleByte {
    const char* name;
    std::size_t bytes;  // read before the failure
    int handed_out;
};

void PrintTo(const StaleByte& test, std::ostream* out) {
    *out << test.name;
}

class FailedRead : public Server, public testing::WithParamInterface<StaleByte> {};

// What is handed out is what stood there one round of the ring before.
TEST_P(FailedRead, HandsOutTheRing) {
    const StaleByte& test = GetParam();
    Socket socket = master();
    socket.send(numbered(test.bytes));
    EXPECT_EQ(to_hex(read_bytes(test.bytes)), to_hex(numbered(test.bytes)));
    socket.reset();
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(read_byte(), test.handed_out); }),
              (Printed{"", "read: Connection reset by peer\n"}));
    EXPECT_THAT(pauses, ElementsAre());
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), std::nullopt); }),
              (Printed{"Client Close\n", ""}));
}

INSTANTIATE_TEST_SUITE_P(Positions, FailedRead,
                         testing::Values(StaleByte{"NothingReadBefore", 0, 0x00},
                                         StaleByte{"LastNeverFilled", 511, 0x00},
                                         StaleByte{"FirstAgain", 512, 1},
                                         StaleByte{"SecondAgain", 513, 2},
                                         StaleByte{"SecondRound", 600, 89},
                                         StaleByte{"ThirdRound", 1024, 11}),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(Server, StaysOpenWhenClosed) {
    EXPECT_EQ(printed_by(CerrarSocket_zondar), (Printed{"", ""}));
    const Socket socket = master();
    socket.send(hex("5A"));
    EXPECT_EQ(read_byte(), 0x5A);
    EXPECT_EQ(printed_by(CerrarSocket_zondar), (Printed{"", ""}));
    socket.send(hex("5B"));
    EXPECT_EQ(read_byte(), 0x5B) << "the connection it reads stays too";
}

TEST_F(Server, TracesBytesBehindItsSwitch) {
    transport_trace = true;
    const Socket socket = master();
    socket.send(hex("A5 04 FF"));
    EXPECT_EQ(printed_by([] { read_bytes(3); }), (Printed{"a5 04 ff ", ""}));

    const Socket collector = master();
    const std::time_t before = std::time(nullptr);
    const Printed printed = printed_by([] { send_bytes(hex("A5 04 0F")); });
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(without_time(printed.out, "\nENVIADO ", before),
              "[DEBUG]enviar_buffer_zondar: Enviado: 3  dbytes:\n"
              "ENVIADO NOW\n"
              "a5 04 0f \n"
              "WriteSocket\n"
              "Buffer: A5040F\n");
}

TEST_F(Server, TracesAStaleByteToo) {
    transport_trace = true;
    master().reset();
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), 0x00); }),
              (Printed{"00 ", "read: Connection reset by peer\n"}));
}

TEST_F(Server, LineControlDoesNothing) {
    tPuertoZondar port{7};
    const auto before = open_sockets();
    EXPECT_EQ(printed_by([&] {
                  reset_puerto_zondar(7);
                  cambia_modo_zondar(&port, 1);
                  cambia_modo_zondar(&port, 0);
                  cambia_modo_zondar(nullptr, 1);
              }),
              (Printed{"", ""}));
    EXPECT_EQ(open_sockets(), before);
    EXPECT_EQ(port.numero, 7U);
}

// Client mode, with the test listening where the server should be.
class Client : public testing::Test {
  protected:
    Client() { give_loopback("169.254.34.21"); }

    static void open_client() {
        EXPECT_EQ(printed_by([] {
                      set_zondar_servernumber(0);
                      AbrirSocket_zondar();
                  }),
                  (Printed{"IP:169.254.34.21\nAbrirSocketClient\n", ""}));
    }
    static Socket server() { return listener_at("169.254.34.21"); }
};

struct ServerNumber {
    const char* name;
    std::vector<unsigned> numbers;  // set one after the other
    const char* printed;
    const char* address;
};

void PrintTo(const ServerNumber& test, std::ostream* out) {
    *out << test.name;
}

class ServerNumbers : public Client, public testing::WithParamInterface<ServerNumber> {};

TEST_P(ServerNumbers, ChooseThePeer) {
    const auto& [name, numbers, printed, address] = GetParam();
    give_loopback("192.168.5.1");
    const Socket listener = listener_at(address);
    EXPECT_EQ(printed_by([&numbers = numbers] {
                  for (const unsigned number : numbers)
                      set_zondar_servernumber(number);
              }),
              (Printed{printed, ""}));
    printed_by([] {
        AbrirSocket_zondar();
        send_bytes(hex("5A"));
    });
    EXPECT_EQ(to_hex(accepted_by(listener).read_to_end()), "5A");
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, ServerNumbers,
    testing::Values(
        ServerNumber{"Zero", {0}, "IP:169.254.34.21\n", "169.254.34.21"},
        ServerNumber{"One", {1}, "IP:192.168.5.1\n", "192.168.5.1"},
        ServerNumber{"Two", {2}, "IP:192.168.5.1\n", "192.168.5.1"},
        ServerNumber{"ThreeKeepsOne", {1, 3}, "IP:192.168.5.1\nIP:192.168.5.1\n", "192.168.5.1"},
        ServerNumber{"ThreeKeepsZero",
                     {2, 0, 3, UINT_MAX},
                     "IP:192.168.5.1\nIP:169.254.34.21\nIP:169.254.34.21\nIP:169.254.34.21\n",
                     "169.254.34.21"},
        ServerNumber{"ThreeFirst", {3, 0}, "IP:\nIP:169.254.34.21\n", "169.254.34.21"}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(Client, ConnectsOnlyWhenUsed) {
    const Socket listener = server();
    open_client();
    EXPECT_FALSE(listener.readable(0));
    EXPECT_THAT(close_on_exec(open_sockets()), Each(FD_CLOEXEC));
}

TEST_F(Client, SendsEachFrameOnAConnectionOfItsOwn) {
    const Socket listener = server();
    open_client();
    const auto before = open_sockets();
    EXPECT_EQ(printed_by([] {
                  send_bytes(hex("A5 04"));
                  send_bytes(hex("5A"));
                  send_bytes({});
              }),
              (Printed{"WriteSocket\nBuffer: A504\n"
                       "WriteSocket\nBuffer: 5A\n"
                       "WriteSocket\nBuffer: \n",
                       ""}));
    EXPECT_EQ(open_sockets(), before);
    EXPECT_EQ(to_hex(accepted_by(listener).read_to_end()), "A5 04");
    EXPECT_EQ(to_hex(accepted_by(listener).read_to_end()), "5A");
    EXPECT_EQ(to_hex(accepted_by(listener).read_to_end()), "");
}

TEST_F(Client, DropsTheFrameWhenItCannotConnect) {
    open_client();
    const auto before = open_sockets();
    EXPECT_EQ(printed_by([] { send_bytes(hex("11")); }),
              (Printed{"WriteSocket\nBuffer: 11\n", "connect error: Connection refused\n"}));
    EXPECT_EQ(open_sockets(), before);
}

TEST_F(Client, ReportsAPartialWriteWithoutNewline) {
    keep_socket_buffers_small();
    const Socket listener = server();
    open_client();
    const auto before = open_sockets();
    const Bytes frame(kTooMuch, 0xEE);
    Printed printed;
    auto sending =
        std::async(std::launch::async, [&] { printed = printed_by([&] { send_bytes(frame); }); });
    Socket peer = accepted_by(listener);
    ASSERT_TRUE(peer.readable(Socket::patience_ms()));
    EXPECT_THAT(close_on_exec(open_sockets()), Each(FD_CLOEXEC));
    peer.reset();
    sending.get();
    EXPECT_EQ(printed.err, "partial write");
    EXPECT_EQ(printed.out.substr(printed.out.size() - 3), "EE\n");
    EXPECT_EQ(open_sockets(), before);
}

TEST_F(Client, ReportsAFailedWrite) {
    const Socket listener = server();
    open_client();
    refuse(SYS_write, EIO, STDERR_FILENO + 1);
    EXPECT_EQ(printed_by([] { send_bytes(hex("11")); }),
              (Printed{"WriteSocket\nBuffer: 11\n", "partial write"}));
    EXPECT_EQ(printed_by([] { send_bytes({}); }),
              (Printed{"WriteSocket\nBuffer: \n", "write error: Input/output error\n"}));
    EXPECT_EQ(to_hex(accepted_by(listener).read_to_end()), "") << "closed all the same";
    EXPECT_EQ(to_hex(accepted_by(listener).read_to_end()), "");
}

TEST_F(Client, ReadsOverOneConnectionUntilThePeerCloses) {
    const Socket listener = server();
    open_client();
    auto first = std::async(std::launch::async, [] { return read_bytes(2); });
    Socket peer = accepted_by(listener);
    peer.send(hex("A5 04 03"));
    EXPECT_EQ(to_hex(first.get()), "A5 04");
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), 0x03); }), (Printed{"", ""}));
    EXPECT_FALSE(listener.readable(0)) << "one connection for all bytes";
    EXPECT_THAT(close_on_exec(open_sockets()), Each(FD_CLOEXEC));

    peer.close_now();
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), std::nullopt); }),
              (Printed{"Socket Closed!\n", ""}));
    EXPECT_THAT(pauses, ElementsAre(10));
    auto second = std::async(std::launch::async, [] { return read_byte(); });
    accepted_by(listener).send(hex("5A"));
    EXPECT_EQ(second.get(), 0x5A);
}

// A reset is silent, unlike a close, and counts as a byte.
TEST_F(Client, HandsOutTheRingInSilenceWhenAReadFails) {
    const Socket listener = server();
    open_client();
    auto first = std::async(std::launch::async, [] { return read_bytes(512); });
    Socket peer = accepted_by(listener);
    peer.send(numbered(512));
    EXPECT_EQ(to_hex(first.get()), to_hex(numbered(512)));
    peer.reset();
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), 1); }), (Printed{"", ""}));
    EXPECT_THAT(pauses, ElementsAre());
    auto second = std::async(std::launch::async, [] { return read_byte(); });
    accepted_by(listener).send(hex("5A"));
    EXPECT_EQ(second.get(), 0x5A) << "on a new connection";
}

TEST_F(Client, CloseNamesAndClosesTheSocket) {
    open_client();
    const std::vector<int> sockets = open_sockets();
    ASSERT_EQ(sockets.size(), 1U);
    EXPECT_EQ(printed_by(CerrarSocket_zondar),
              (Printed{"CerrarSocket " + std::to_string(sockets[0]) + "\n", ""}));
    EXPECT_TRUE(open_sockets().empty());
}

// The connection counts as made until a read on the closed socket fails.
TEST_F(Client, ReadBehindACloseFailsOnceThenReconnects) {
    const Socket listener = server();
    open_client();
    auto first = std::async(std::launch::async, [] { return read_byte(); });
    accepted_by(listener).send(hex("5A"));
    EXPECT_EQ(first.get(), 0x5A);
    printed_by(CerrarSocket_zondar);
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), 0x00); }), (Printed{"", ""}));
    EXPECT_FALSE(listener.readable(0));
    auto second = std::async(std::launch::async, [] { return read_byte(); });
    accepted_by(listener).send(hex("5B"));
    EXPECT_EQ(second.get(), 0x5B);
}

// A sending takes the one socket for its own connection and closes it.
TEST_F(Client, ReadBehindASendingFailsOnceThenReconnects) {
    const Socket listener = server();
    open_client();
    auto first = std::async(std::launch::async, [] { return read_byte(); });
    const Socket peer = accepted_by(listener);
    peer.send(hex("5A 5C"));
    EXPECT_EQ(first.get(), 0x5A);
    printed_by([] { send_bytes(hex("11")); });
    EXPECT_EQ(to_hex(accepted_by(listener).read_to_end()), "11");
    EXPECT_EQ(printed_by([] { EXPECT_EQ(read_byte(), 0x00); }), (Printed{"", ""}));
    auto second = std::async(std::launch::async, [] { return read_byte(); });
    accepted_by(listener).send(hex("5B"));
    EXPECT_EQ(second.get(), 0x5B);
}

TEST_F(Client, TracesReceivedBytesBehindItsSwitch) {
    const Socket listener = server();
    open_client();
    transport_trace = true;
    Printed printed;
    auto reading =
        std::async(std::launch::async, [&] { printed = printed_by([] { read_bytes(2); }); });
    accepted_by(listener).send(hex("A5 0F"));
    reading.get();
    EXPECT_EQ(printed, (Printed{"a5 0f ", ""}));
}

struct Attempts {
    const char* name;
    int timeout;
    std::size_t count;
};

void PrintTo(const Attempts& test, std::ostream* out) {
    *out << test.name;
}

class CountedAttempts : public Client, public testing::WithParamInterface<Attempts> {};

// Nobody listens, so each attempt is one refused connection.
TEST_P(CountedAttempts, AreATenthOfTheTimeoutAndOne) {
    const auto& [name, timeout, count] = GetParam();
    open_client();
    const auto before = open_sockets();
    EXPECT_EQ(printed_by([timeout = timeout] { EXPECT_EQ(read_byte(timeout), std::nullopt); }),
              (Printed{"", [count = count] {
                           std::string lines;
                           for (std::size_t i = 0; i < count; ++i)
                               lines += "connect error: Connection refused\n";
                           return lines;
                       }()}));
    EXPECT_EQ(pauses, std::vector<useconds_t>(count, 10));
    EXPECT_EQ(open_sockets(), before);
}

INSTANTIATE_TEST_SUITE_P(Timeouts, CountedAttempts,
                         testing::Values(Attempts{"Zero", 0, 1}, Attempts{"Nine", 9, 1},
                                         Attempts{"Ten", 10, 2}, Attempts{"Nineteen", 19, 2},
                                         Attempts{"TheProcessors", 5000, 501},
                                         Attempts{"MinusNine", -9, 1}, Attempts{"MinusTen", -10, 0},
                                         Attempts{"MinusFiveThousand", -5000, 0},
                                         Attempts{"Lowest", INT_MIN, 0}),
                         [](const auto& instance) { return instance.param.name; });

// What makes the process end, and with which line.
struct Fatal {
    const char* name;
    void (*run)();
    const char* line;
};

void PrintTo(const Fatal& test, std::ostream* out) {
    *out << test.name;
}

class FatalFailure : public testing::TestWithParam<Fatal> {};

// In the ordinary way, so that what it printed before is not lost.
TEST_P(FatalFailure, EndsTheProcessWithMinusOne) {
    const auto run = [] {
        std::atexit([] { std::fputs("flushed", stderr); });
        GetParam().run();
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(255),
                testing::Eq(std::string(GetParam().line) + "flushed"));
}

void use_as_client_without_sockets(void (*use)()) {
    set_zondar_servernumber(0);
    AbrirSocket_zondar();
    refuse(SYS_socket, ENFILE);
    use();
}

INSTANTIATE_TEST_SUITE_P(
    Calls, FatalFailure,
    testing::Values(Fatal{"SocketOfTheServer",
                          [] {
                              refuse(SYS_socket, EMFILE);
                              open_server();
                          },
                          "socket error: Too many open files\n"},
                    Fatal{"SocketOfTheClient",
                          [] {
                              refuse(SYS_socket, EMFILE);
                              AbrirSocket_zondar();
                          },
                          "socket error: Too many open files\n"},
                    Fatal{"SocketToSendAsClient",
                          [] { use_as_client_without_sockets([] { send_bytes(hex("11")); }); },
                          "socket error: Too many open files in system\n"},
                    Fatal{"SocketToReadAsClient",
                          [] { use_as_client_without_sockets([] { read_byte(); }); },
                          "socket error: Too many open files in system\n"},
                    Fatal{"BindToATakenPort",
                          [] {
                              const Socket taken = listener_at("127.0.0.1");
                              open_server();
                          },
                          "bind error: Address already in use\n"},
                    Fatal{"Listen",
                          [] {
                              refuse(SYS_listen, EOPNOTSUPP);
                              open_server();
                          },
                          "listen error: Operation not supported\n"}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
