#include "vcard/VpcdBridge.hpp"

#include "vcard/VirtualCard.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace vcard {

namespace {

constexpr std::uint8_t controlPowerOff = 0;
constexpr std::uint8_t controlPowerOn = 1;
constexpr std::uint8_t controlReset = 2;
constexpr std::uint8_t controlAtr = 4;
constexpr int pollIntervalMs = 200;

/// What an unexpected end of the connection throws inside the bridge.
struct ConnectionClosed {};
/// What a stop request throws inside the bridge, whatever it was waiting for.
struct Stopped {};

std::string errorText(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

} // namespace

VpcdBridge::~VpcdBridge() {
    if (socket_ >= 0)
        ::close(socket_);
}

void VpcdBridge::connect(const std::string& host, std::uint16_t port,
                         std::chrono::milliseconds timeout) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1)
        throw BridgeError("not an IPv4 address: " + host);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (socket_ < 0)
            throw BridgeError(errorText("cannot create a socket"));
        if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
            break;
        const std::string failure =
            errorText("cannot connect to the vpcd driver at " + host + ":" + std::to_string(port));
        ::close(socket_);
        socket_ = -1;
        if (std::chrono::steady_clock::now() >= deadline)
            throw BridgeError(failure);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    int on = 1;
    ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void VpcdBridge::serve(const std::atomic<bool>& stop) {
    if (socket_ < 0)
        throw BridgeError("the bridge is not connected");
    stop_ = &stop;
    Bytes message;
    try {
        while (receive(message))
            handle(message);
    } catch (const Stopped&) {
    }
}

bool VpcdBridge::waitFor(short events) const {
    pollfd fd{socket_, events, 0};
    while (!*stop_) {
        int ready = ::poll(&fd, 1, pollIntervalMs);
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            throw BridgeError(errorText("cannot wait for the vpcd driver"));
    }
    return false;
}

void VpcdBridge::readExactly(std::uint8_t* data, std::size_t size) {
    while (size > 0) {
        if (!waitFor(POLLIN))
            throw Stopped{};
        ssize_t got = ::recv(socket_, data, size, MSG_DONTWAIT);
        if (got == 0)
            throw ConnectionClosed{};
        if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK))
            continue;
        if (got < 0)
            throw BridgeError(errorText("cannot read from the vpcd driver"));
        data += got;
        size -= static_cast<std::size_t>(got);
        acknowledgeAtOnce();
    }
}

// The driver writes a message's length and its body separately; with the
// acknowledgement of the length delayed (up to 40 ms on Linux), its Nagle
// algorithm holds the body back until then. Quick acknowledgement is not
// sticky, so it is asked for again after every read.
void VpcdBridge::acknowledgeAtOnce() const {
    int on = 1;
    ::setsockopt(socket_, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
}

bool VpcdBridge::receive(Bytes& message) {
    try {
        std::uint8_t header[2];
        readExactly(header, sizeof header);
        message.resize(static_cast<std::size_t>(header[0]) << 8 | header[1]);
        readExactly(message.data(), message.size());
        return true;
    } catch (const ConnectionClosed&) {
        return false;
    }
}

void VpcdBridge::send(const Bytes& message) {
    if (message.size() > 0xFFFF)
        throw BridgeError("response too long for the vpcd protocol");
    Bytes framed = {static_cast<std::uint8_t>(message.size() >> 8),
                    static_cast<std::uint8_t>(message.size())};
    framed.insert(framed.end(), message.begin(), message.end());
    std::size_t sent = 0;
    while (sent < framed.size()) {
        if (!waitFor(POLLOUT))
            throw Stopped{};
        ssize_t n = ::send(socket_, framed.data() + sent, framed.size() - sent,
                           MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK))
            continue;
        if (n < 0)
            throw BridgeError(errorText("cannot write to the vpcd driver"));
        sent += static_cast<std::size_t>(n);
    }
}

void VpcdBridge::handle(const Bytes& message) {
    if (message.size() != 1) {
        Bytes response;
        try {
            response = card_.transmit(message);
        } catch (const CardRemoved&) {
            // The driver waits for an answer whatever happened to the card.
            response = {0x6F, 0x00};
        } catch (const ImageError&) {
            // The image could not be locked or taken up: the card cannot reach its memory.
            response = {0x65, 0x81};
        }
        // Only a READ BINARY of a whole 64 KiB EF answers more than a frame carries; any local
        // application may ask for one, and the bridge must keep serving.
        if (response.size() > 0xFFFF)
            response = {0x67, 0x00};
        send(response);
        return;
    }
    switch (message[0]) {
    case controlPowerOff:
        card_.powerOff();
        break;
    case controlPowerOn:
    case controlReset:
        card_.reset();
        break;
    case controlAtr:
        send(card_.atr());
        break;
    default:
        break;
    }
}

} // namespace vcard
