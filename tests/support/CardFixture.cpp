#include "CardFixture.hpp"

#include "host/pcsc/PcscTransport.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <unistd.h>

namespace hosttest {

const char* const userPin = "123456";
const char* const puk = "12345678";
const char* const soPin = "87654321";

std::string transportName(const ::testing::TestParamInfo<TransportKind>& info) {
    const char* const names[] = {"InProcess", "InProcessShortApdus", "Pcsc"};
    return names[static_cast<int>(info.param)];
}

void CardTest::SetUp() {
    std::unique_ptr<card::ICardTransport> transport;
    if (GetParam() == TransportKind::Pcsc) {
        if (geteuid() != 0) {
            GTEST_SKIP() << "the PC/SC tests drive pcscd, which needs root";
        }
        const char* reader = std::getenv("P15_READER"); // else the first vpcd reader
        transport = host::connectReader(reader ? reader : "Virtual PCD", std::chrono::seconds(10));
    } else {
        auto inProcess =
            std::make_unique<host::VirtualCardTransport>(vcard::VirtualCard::personalised());
        virtualCard_ = &inProcess->virtualCard();
        virtualCard_->setExtendedLength(GetParam() != TransportKind::InProcessShort);
        transport = std::move(inProcess);
    }
    channel_ = boost::make_shared<host::Channel>(std::move(transport));
    card_ = boost::make_shared<host::iso7816::Card>(
        boost::make_shared<host::iso7816::CardSession>(channel_));
    card_->selectApplication(*channel_, host::iso7816::pkcs15Aid());
    if (GetParam() == TransportKind::Pcsc) {
        // The served card lives on between tests: start with nothing verified.
        for (unsigned char reference : {0x01, 0x02, 0x03}) {
            pins()->deauthenticate(*channel_, pinReference(reference));
        }
    }
}

void CardTest::verifyUserPin() const {
    pins()->authenticate(*channel_, pinReference(0x01), paddedPin(userPin));
}

card::service::PinReference pinReference(unsigned char reference) {
    card::service::PinReference pin;
    pin.reference = reference;
    return pin;
}

mw::ByteBuffer paddedPin(const std::string& digits) {
    mw::ByteBuffer pin(8);
    std::fill(pin.begin(), pin.end(), 0xFF);
    std::copy(digits.begin(), digits.end(), pin.begin());
    return pin;
}

mw::ByteBuffer text(const std::string& value) {
    return mw::ByteBuffer(reinterpret_cast<const unsigned char*>(value.data()), value.size());
}

} // namespace hosttest
