// The exporter over HTTP: who may ask what, and what is answered.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace exporter {

struct Options {
    std::vector<std::string> targets_files;
    std::string address = "127.0.0.1";  // IPv4 or IPv6
    std::uint16_t port = 9801;
    std::size_t probes = 512;           // at a time
    std::chrono::seconds interval{20};  // between two probes of a module, as far as is known
};

// An address as it stands before a port: one of IPv6 in brackets.
std::string shown(const std::string& address);

class Server {
  public:
    // Listens from now on. Throws std::invalid_argument or std::runtime_error with one line.
    explicit Server(const Options& options);
    // Answers the probes that are on their way, and takes no others meanwhile.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

  private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

}  // namespace exporter
