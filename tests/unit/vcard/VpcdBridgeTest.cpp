// The vpcd bridge against a loopback listener that speaks the driver's side of the protocol.

#include "CardTestSupport.hpp"

#include "vcard/VpcdBridge.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace vcard::test {
namespace {

/// The reader side: listens on an ephemeral loopback port and frames messages as the driver does.
class FakeDriver {
public:
    FakeDriver() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
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
        closeConnection();
        ::close(listener_);
    }
    std::uint16_t port() const { return port_; }
    void accept() {
        connection_ = ::accept(listener_, nullptr, nullptr);
        ASSERT_GE(connection_, 0) << "the bridge did not connect";
        setReceiveTimeout(connection_);
    }
    void closeConnection() {
        if (connection_ >= 0)
            ::close(connection_);
        connection_ = -1;
    }

    void send(const Bytes& payload) {
        Bytes framed = {static_cast<std::uint8_t>(payload.size() >> 8),
                        static_cast<std::uint8_t>(payload.size())};
        framed = concat(framed, payload);
        ASSERT_EQ(::send(connection_, framed.data(), framed.size(), 0),
                  static_cast<ssize_t>(framed.size()));
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

    void readExactly(std::uint8_t* data, std::size_t size) {
        while (size > 0) {
            ssize_t got = ::recv(connection_, data, size, 0);
            ASSERT_GT(got, 0) << "no complete message from the bridge";
            data += got;
            size -= static_cast<std::size_t>(got);
        }
    }

    int listener_ = -1;
    int connection_ = -1;
    std::uint16_t port_ = 0;
};

/// A bridge serving a fresh card to the fake driver on its own thread.
class VpcdBridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        serving = std::thread([this] {
            bridge.connect("127.0.0.1", driver.port(), std::chrono::seconds(5));
            bridge.serve(stop);
        });
        driver.accept();
    }
    void TearDown() override {
        stop = true;
        driver.closeConnection();
        if (serving.joinable())
            serving.join();
    }

    FakeDriver driver;
    std::unique_ptr<VirtualCard> card = VirtualCard::personalised();
    VpcdBridge bridge{*card};
    std::atomic<bool> stop{false};
    std::thread serving;
};

TEST_F(VpcdBridgeTest, AnswersControlCodesAndApdusUntilTheDriverCloses) {
    driver.send({0x00}); // power off
    driver.send({0x01}); // power on
    driver.send({0x04}); // ATR please
    EXPECT_EQ(driver.receive(), card->atr());
    driver.send(hex("00A4040C0CA000000063504B43532D3135"));
    EXPECT_EQ(driver.receive(), hex("9000"));
    driver.send(hex("00A4020C025031"));
    EXPECT_EQ(driver.receive(), hex("9000"));
    driver.send(hex("00B0000002"));
    Bytes odfStart = driver.receive();
    EXPECT_EQ(odfStart, hex("A006 9000")); // [0] privateKeys, the first ODF entry
    driver.send({0x02});                   // reset: the MF is current again
    driver.send(hex("00B0000002"));
    EXPECT_EQ(driver.receive(), hex("6986"));
    driver.closeConnection();
    serving.join(); // serve() returns when the socket closes
}

TEST_F(VpcdBridgeTest, StopsOnRequestAndReportsAnUnreachableDriver) {
    stop = true;
    serving.join();

    VpcdBridge unconnected(*card);
    EXPECT_THROW(unconnected.connect("127.0.0.1", 1, std::chrono::milliseconds(0)), BridgeError);
    EXPECT_THROW(unconnected.connect("no-address", 1, std::chrono::milliseconds(0)), BridgeError);
}

} // namespace
} // namespace vcard::test
