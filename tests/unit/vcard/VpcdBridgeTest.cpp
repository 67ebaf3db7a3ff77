// The vpcd bridge against a loopback listener that speaks the driver's side of the protocol.

#include "CardTestSupport.hpp"

#include "vcard/VpcdBridge.hpp"

#include <arpa/inet.h>
#include <csignal>
#include <fstream>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace vcard::test {
namespace {

/// The reader side: listens on an ephemeral loopback port and frames messages as the driver does.
class FakeDriver {
public:
    /// receiveBuffer, when given, bounds what the connection takes in before the bridge blocks.
    explicit FakeDriver(int receiveBuffer = 0) {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        if (receiveBuffer > 0)
            ::setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener_, 1), 0);
        setReceiveTimeout(listener_); // bounds accept() too
        socklen_t length = sizeof address;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~FakeDriver() {
        ::close(connection_);
        ::close(listener_);
    }
    std::uint16_t port() const { return port_; }
    void accept() {
        connection_ = ::accept(listener_, nullptr, nullptr);
        ASSERT_GE(connection_, 0) << "the bridge did not connect";
        setReceiveTimeout(connection_);
    }

    void send(const Bytes& payload) {
        sendRaw(concat({static_cast<std::uint8_t>(payload.size() >> 8),
                        static_cast<std::uint8_t>(payload.size())},
                       payload));
    }
    /// Bytes as they are, without a length in front.
    void sendRaw(const Bytes& bytes) {
        ASSERT_EQ(::send(connection_, bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
    }
    /// Waits until the bridge has taken everything sent so far out of its socket (loopback
    /// sockets show their receive queues in /proc/net/tcp); false after the timeout.
    bool waitUntilBridgeRead(std::chrono::milliseconds timeout) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        ::getpeername(connection_, reinterpret_cast<sockaddr*>(&peer), &length);
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (unreadAt(ntohs(peer.sin_port)) != 0) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }
    bool waitReadable(std::chrono::milliseconds timeout) {
        pollfd fd{connection_, POLLIN, 0};
        return ::poll(&fd, 1, static_cast<int>(timeout.count())) == 1;
    }
    Bytes receive() {
        std::uint8_t header[2] = {0, 0};
        readExactly(header, 2);
        Bytes payload(static_cast<std::size_t>(header[0] << 8 | header[1]));
        readExactly(payload.data(), payload.size());
        return payload;
    }

private:
    // A framing fault fails the test within seconds instead of hanging it.
    static void setReceiveTimeout(int socket) {
        const timeval timeout{5, 0};
        EXPECT_EQ(::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout), 0);
    }

    static std::optional<unsigned long> unreadAt(std::uint16_t localPort) {
        std::ifstream tcp("/proc/net/tcp");
        std::string line;
        std::getline(tcp, line); // the column names
        while (std::getline(tcp, line)) {
            std::istringstream fields(line);
            std::string slot, local, remote, state, queues;
            fields >> slot >> local >> remote >> state >> queues;
            if (std::stoul(local.substr(local.find(':') + 1), nullptr, 16) == localPort)
                return std::stoul(queues.substr(queues.find(':') + 1), nullptr, 16);
        }
        return std::nullopt;
    }

    void readExactly(std::uint8_t* data, std::size_t size) {
        ASSERT_EQ(::recv(connection_, data, size, MSG_WAITALL), static_cast<ssize_t>(size))
            << "no complete message from the bridge";
    }

    int listener_ = -1;
    int connection_ = -1;
    std::uint16_t port_ = 0;
};

/// p15-vcard-serve as its own process, serving an in-memory card to the fake driver.
class ServeProcess {
public:
    explicit ServeProcess(std::uint16_t port) {
        const std::string portText = std::to_string(port);
        const char* argv[] = {P15_VCARD_SERVE,     "--port", portText.c_str(),
                              "--connect-timeout", "5",      nullptr};
        EXPECT_EQ(::posix_spawn(&pid_, P15_VCARD_SERVE, nullptr, nullptr,
                                const_cast<char* const*>(argv), environ),
                  0);
        pidfd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
        EXPECT_GE(pidfd_, 0);
    }
    ~ServeProcess() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        ::close(pidfd_);
    }
    /// Sends SIGTERM: the wait status if the process ends within the bound.
    std::optional<int> terminate(std::chrono::milliseconds bound) {
        ::kill(pid_, SIGTERM);
        pollfd fd{pidfd_, POLLIN, 0};
        if (::poll(&fd, 1, static_cast<int>(bound.count())) != 1)
            return std::nullopt;
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

private:
    pid_t pid_ = -1;
    int pidfd_ = -1;
};

/// A bridge process stops on SIGTERM within this bound, whatever it was doing.
constexpr std::chrono::seconds promptly{2};

/// Exit status 0 within the bound.
bool endedCleanly(const std::optional<int>& status) {
    return status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0;
}

// Control codes and APDUs in general go through the bridge in every pcscd test. An answer
// longer than a 16-bit frame (64 KiB of an EF and the status word) is refused with 6700 instead
// of ending the bridge.
TEST(VpcdBridgeProcess, AnswerBeyondAFrameIsWrongLengthAndServingGoesOn) {
    FakeDriver driver;
    ServeProcess bridge(driver.port());
    driver.accept();
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

TEST(VpcdBridge, ReportsAnUnreachableDriver) {
    auto card = VirtualCard::personalised();
    VpcdBridge unconnected(*card);
    EXPECT_THROW(unconnected.connect("127.0.0.1", 1, std::chrono::milliseconds(0)), BridgeError);
    EXPECT_THROW(unconnected.connect("no-address", 1, std::chrono::milliseconds(0)), BridgeError);
}

TEST(VpcdBridgeProcess, StopsOnSigtermHalfwayThroughACommand) {
    FakeDriver driver;
    ServeProcess bridge(driver.port());
    driver.accept();
    driver.sendRaw(hex("000A 00A4")); // 10 bytes announced, 2 sent
    ASSERT_TRUE(driver.waitUntilBridgeRead(std::chrono::seconds(5)));
    EXPECT_TRUE(endedCleanly(bridge.terminate(promptly)));
}

TEST(VpcdBridgeProcess, StopsOnSigtermHalfwayThroughAnAnswer) {
    FakeDriver driver(4096);
    ServeProcess bridge(driver.port());
    driver.accept();
    // Answers of 64 KB that the driver does not read: the bridge blocks in the middle of one.
    for (int i = 0; i < 128; ++i)
        driver.send(hex("00840000 00FFF0"));
    ASSERT_TRUE(driver.waitReadable(std::chrono::seconds(5)));
    EXPECT_TRUE(endedCleanly(bridge.terminate(promptly)));
}

} // namespace
} // namespace vcard::test
