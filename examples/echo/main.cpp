// An echo server: one thread sends back to many clients what each of them sends. Shows how a Loop
// watches descriptors, and how a program ends by Ctrl-C.
//
//     echo 7007             serves port 7007 of this machine; with 0 one that is free
//     nc 127.0.0.1 7007     a client
//
// Limits: 1000 clients with 4 KiB each; who comes then waits with the system until others leave, as
// he does while the process has no descriptors left. A client that does not take its echo is not
// read from either. One that stays and says nothing keeps its place.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Utl.h"

namespace {

using namespace std::chrono_literals;

constexpr int ECHO_LOG = 1;
constexpr unsigned long MOST_CLIENTS = 1000;

// A descriptor, closed when this goes.
class Descriptor {
public:
    explicit Descriptor(int number) : mNumber(number) {}
    ~Descriptor() {
        if (mNumber != -1) {
            close(mNumber);
        }
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;

    int get() const { return mNumber; }

private:
    int const mNumber;
};

class Client {
public:
    explicit Client(int socket) : mSocket(socket) {}

    int socket() const { return mSocket.get(); }

    // What it waits for. As long as something is left to write nothing more is read.
    unsigned awaited() const { return mUnsent.empty() ? utl::Loop::READABLE : utl::Loop::WRITABLE; }

    // Reads once if all is written, and writes as much as goes. False when the client has gone.
    bool serve() {
        if (mUnsent.empty()) {
            ssize_t const got = recv(socket(), mBuffer, sizeof mBuffer, 0);
            if (got <= 0) {
                return got == -1 && errno == EAGAIN;
            }
            mUnsent = std::string_view(mBuffer, static_cast<std::size_t>(got));
        }
        ssize_t const sent = send(socket(), mUnsent.data(), mUnsent.size(), MSG_NOSIGNAL);
        if (sent == -1) {
            return errno == EAGAIN;
        }
        mUnsent.remove_prefix(static_cast<std::size_t>(sent));
        return true;
    }

private:
    Descriptor const mSocket;
    char mBuffer[4096];
    std::string_view mUnsent;  // of the buffer

public:
    utl::ScopedTask watch;  // the server's; ends before the socket is closed
};

// Its loop has room for MOST_CLIENTS + 2 descriptors and for one timer.
class Server {
public:
    explicit Server(utl::Loop& loop) : mLoop(loop) {}

    // In a call, so that none of its tasks is under way when its members go.
    ~Server() {
        mLoop.call([this] {
            mAccepting.cancel();
            mClients.clear();
        });
    }

    // The port that it serves from now on. Empty, with errno, when that cannot be.
    std::optional<std::uint16_t> start(std::uint16_t port) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const anyAddress = reinterpret_cast<sockaddr*>(&address);
        int const on = 1;
        if (setsockopt(mListener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
            bind(mListener.get(), anyAddress, size) != 0 ||
            listen(mListener.get(), SOMAXCONN) != 0 ||
            getsockname(mListener.get(), anyAddress, &size) != 0) {
            return std::nullopt;
        }
        mLoop.call([this] { acceptFromNowOn(); });  // its members are the loop's from here on
        return ntohs(address.sin_port);
    }

    unsigned long accepted() {
        return mLoop.call([this] { return mAccepted; }).value_or(0);
    }

private:
    void acceptFromNowOn() {
        mAccepting =
            mLoop.watch(mListener.get(), utl::Loop::READABLE, [this] { acceptAllThatWait(); });
    }

    void acceptAllThatWait() {
        while (mClients.size() < MOST_CLIENTS) {
            int const socket =
                accept4(mListener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (socket != -1) {
                ++mAccepted;
                watch(mClients.try_emplace(socket, socket).first->second);
            } else if (errno == EAGAIN) {
                return;
            } else if (errno != ECONNABORTED) {
                applog(ECHO_LOG, utl::LEVEL_DETAIL, "accept failed. errno:%d", errno);
                break;
            }
        }
        // There is no room. Those who wait would wake the loop again and again: it looks away.
        mAccepting.cancel();
        mAccepting = mLoop.postAfter(100ms, [this] { acceptFromNowOn(); });
    }

    // The first time, and whenever the client waits for something else.
    void watch(Client& client) {
        client.watch.cancel();  // a descriptor has one watch at a time
        client.watch = mLoop.watch(client.socket(), client.awaited(), [this, &client] {
            unsigned const awaited = client.awaited();
            if (!client.serve()) {
                mClients.erase(client.socket());
            } else if (client.awaited() != awaited) {
                watch(client);
            }
        });
    }

    utl::Loop& mLoop;
    Descriptor const mListener{socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    utl::ScopedTask mAccepting;      // the loop's, with all that follows
    std::map<int, Client> mClients;  // by their sockets
    unsigned long mAccepted = 0;
};

std::optional<std::uint16_t> parsePort(std::string const& text) {
    bool const isNumber = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
    int const port = isNumber && text.size() <= 5 ? std::stoi(text) : -1;
    return port >= 0 && port <= 65535 ? std::make_optional(static_cast<std::uint16_t>(port))
                                      : std::nullopt;
}

// Ctrl-C and its kin wait until main() asks for them. Before there are threads, which inherit it.
sigset_t holdEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

}  // namespace

int main(int argc, char** argv) {
    std::optional<std::uint16_t> const wanted = parsePort(argc == 2 ? argv[1] : "");
    if (!wanted) {
        std::fputs("usage: echo PORT\n", stderr);
        return 2;
    }
    registerLogType(ECHO_LOG, "<ECHO> ", utl::LEVEL_INFORMATION);
    configureLogFromEnvironment();
    sigset_t const endSignals = holdEndSignals();

    utl::LoopOptions options;
    options.name = "echo";
    options.maxDescriptorCount = MOST_CLIENTS + 2;  // the listener's, and one that is watched anew
    std::unique_ptr<utl::Loop> const loop = utl::Loop::make(options);
    if (loop == nullptr) {
        return 1;  // the log tells why
    }
    Server server(*loop);
    std::optional<std::uint16_t> const port = server.start(*wanted);
    if (!port) {
        std::fprintf(stderr, "cannot serve port %d: %s\n", *wanted, std::strerror(errno));
        return 1;
    }
    std::printf("serving 127.0.0.1:%d until Ctrl-C is hit\n", *port);
    std::fflush(stdout);

    int signal;
    sigwait(&endSignals, &signal);
    std::printf("%lu clients served\n", server.accepted());
    return 0;
}
