// p15-vcard-serve as its own process against a loopback listener speaking the driver's side.

#include "vcard/VpcdBridge.hpp"
#include "CardTestSupport.hpp"

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace vcard::test {
namespace {

/// The reader side of a bridge process on an ephemeral loopback port; receiveBuffer bounds what it
/// takes in before the bridge blocks. Every receive fails within seconds, never hangs.
class DriverAndBridge {
public:
    explicit DriverAndBridge(int receiveBuffer = 0) {
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        if (receiveBuffer > 0)
            ::setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        const timeval timeout{5, 0}; // bounds accept() and every receive
        ::setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t length = sizeof address;
        EXPECT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(::listen(listener, 1), 0);
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        const std::string port = std::to_string(ntohs(address.sin_port));
        const char* argv[] = {P15_VCARD_SERVE,     "--port", port.c_str(),
                              "--connect-timeout", "5",      nullptr};
        EXPECT_EQ(::posix_spawn(&pid_, P15_VCARD_SERVE, nullptr, nullptr,
                                const_cast<char* const*>(argv), environ),
                  0);
        pidfd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
        connection_ = ::accept(listener, nullptr, nullptr);
        ::setsockopt(connection_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        ::close(listener);
    }
    ~DriverAndBridge() {
        if (pid_ > 0 && ::kill(pid_, SIGKILL) == 0)
            ::waitpid(pid_, nullptr, 0);
        ::close(connection_);
        ::close(pidfd_);
    }

    /// Bytes as they are, without a length in front unless framed.
    void send(const Bytes& payload, bool framed = true) {
        const Bytes header = {std::uint8_t(payload.size() >> 8), std::uint8_t(payload.size())};
        const Bytes bytes = framed ? concat(header, payload) : payload;
        ASSERT_EQ(::send(connection_, bytes.data(), bytes.size(), 0), ssize_t(bytes.size()));
    }
    Bytes receive() {
        std::uint8_t header[2] = {0, 0};
        ::recv(connection_, header, 2, MSG_WAITALL);
        Bytes payload(static_cast<std::size_t>(header[0] << 8 | header[1]));
        EXPECT_EQ(::recv(connection_, payload.data(), payload.size(), MSG_WAITALL),
                  ssize_t(payload.size()));
        return payload;
    }
    bool readable() const {
        pollfd fd{connection_, POLLIN, 0};
        return ::poll(&fd, 1, 5000) == 1;
    }
    /// Sends SIGTERM: true when the bridge exits with status 0 within 2 s, whatever it was doing.
    bool stopsCleanlyOnSigterm() {
        ::kill(pid_, SIGTERM);
        pollfd fd{pidfd_, POLLIN, 0};
        int status = -1;
        if (::poll(&fd, 1, 2000) == 1 && ::waitpid(pid_, &status, 0) == pid_)
            pid_ = -1;
        return pid_ == -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    pid_t pid_ = -1;
    int pidfd_ = -1, connection_ = -1;
};

// An answer longer than a 16-bit frame is refused with 6700 instead of ending the bridge.
TEST(VpcdBridge, ReportsAnUnreachableDriver) {
    auto card = VirtualCard::personalised();
    VpcdBridge unconnected(*card);
    EXPECT_THROW(unconnected.connect("127.0.0.1", 1, std::chrono::milliseconds(0)), BridgeError);
    EXPECT_THROW(unconnected.connect("no-address", 1, std::chrono::milliseconds(0)), BridgeError);
}

TEST(VpcdBridgeProcess, AnswerBeyondAFrameIsWrongLengthAndServingGoesOn) {
    DriverAndBridge driver;
    for (const Bytes& command :
         {hex(selectPkcs15), apdu(0, 0x20, 0, 1, paddedPin("123456")), hex("00A4000C02DF02"),
          createFile("8002FFFF 820101 8302C0FF", "A0029000")}) {
        driver.send(command);
        ASSERT_EQ(driver.receive(), hex("9000")) << toHex(command);
    }
    driver.send(hex("00B00000 000000"));
    EXPECT_EQ(driver.receive(), hex("6700"));
    driver.send(hex("00B00000 00FFFD"));
    EXPECT_EQ(driver.receive().size(), 0xFFFFu);
}

TEST(VpcdBridgeProcess, StopsOnSigtermHalfwayThroughACommandOrAnAnswer) {
    DriverAndBridge command;
    command.send(hex("000A 00A4"), false); // 10 bytes announced, 2 sent
    // Time for the bridge to take them in (were it still idle, it would have to stop all the same).
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(command.stopsCleanlyOnSigterm());
    DriverAndBridge answer(4096);
    // Answers of 64 KB that the driver does not read: the bridge blocks in the middle of one.
    for (int i = 0; i < 128; ++i)
        answer.send(hex("00840000 00FFF0"));
    ASSERT_TRUE(answer.readable());
    EXPECT_TRUE(answer.stopsCleanlyOnSigterm());
}

} // namespace
} // namespace vcard::test
