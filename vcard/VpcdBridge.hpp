#pragma once

#include "vcard/Bytes.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace vcard {

class VirtualCard;

/// The connection to pcscd's vpcd reader driver failed.
class BridgeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Serves a virtual card to the vpcd reader driver: a TCP connection to the driver, on which every
/// message is a 2-byte big-endian length and a payload. A 1-byte payload is a control code
/// (0 power off, 1 power on, 2 reset, 4 send the ATR); a longer one is a command APDU, answered
/// with the response APDU.
class VpcdBridge {
public:
    static constexpr std::uint16_t defaultPort = 35963;

    explicit VpcdBridge(VirtualCard& card)
        : card_(card) {}
    ~VpcdBridge();
    VpcdBridge(const VpcdBridge&) = delete;
    VpcdBridge& operator=(const VpcdBridge&) = delete;

    /// Connects, retrying until the driver listens or the timeout passes (BridgeError then).
    void connect(const std::string& host, std::uint16_t port, std::chrono::milliseconds timeout);

    /// Answers the driver until it closes the connection or stop turns true. Every wait, also in
    /// the middle of a message either way, looks at stop at least every 200 ms and whenever a
    /// signal interrupts it, so the bridge stops promptly in every state.
    void serve(const std::atomic<bool>& stop);

private:
    /// Waits until the socket is ready for events; false when stop turned true first.
    bool waitFor(short events) const;
    bool receive(Bytes& message);
    void send(const Bytes& message);
    void handle(const Bytes& message);
    void acknowledgeAtOnce() const;
    void readExactly(std::uint8_t* data, std::size_t size);

    VirtualCard& card_;
    int socket_ = -1;
    const std::atomic<bool>* stop_ = nullptr;
};

} // namespace vcard
