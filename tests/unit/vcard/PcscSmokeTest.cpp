// A plain PC/SC client against pcscd with the virtual card in the vpcd reader: select the
// PKCS#15 application and read EF(ODF). Needs the pcscd_vcard fixture (root only).

#include <PCSC/winscard.h>
#include <PCSC/wintypes.h>

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

class PcscSmoke : public ::testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0)
            GTEST_SKIP() << "pcscd and the vpcd bridge are started only as root";
        ASSERT_EQ(SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context_),
                  SCARD_S_SUCCESS);
    }
    void TearDown() override {
        if (card_ != 0)
            SCardDisconnect(card_, SCARD_LEAVE_CARD);
        if (context_ != 0)
            SCardReleaseContext(context_);
    }

    std::string vpcdReader() {
        DWORD length = 0;
        EXPECT_EQ(SCardListReaders(context_, nullptr, nullptr, &length), SCARD_S_SUCCESS);
        std::string readers(length, '\0');
        EXPECT_EQ(SCardListReaders(context_, nullptr, readers.data(), &length), SCARD_S_SUCCESS);
        for (const char* name = readers.c_str(); *name != '\0';
             name += std::string(name).size() + 1)
            if (std::string(name).find("Virtual PCD") != std::string::npos)
                return name;
        return {};
    }

    Bytes transmit(const Bytes& command) {
        Bytes response(258);
        DWORD length = static_cast<DWORD>(response.size());
        const SCARD_IO_REQUEST* pci = protocol_ == SCARD_PROTOCOL_T1 ? SCARD_PCI_T1 : SCARD_PCI_T0;
        EXPECT_EQ(SCardTransmit(card_, pci, command.data(), static_cast<DWORD>(command.size()),
                                nullptr, response.data(), &length),
                  SCARD_S_SUCCESS);
        response.resize(length);
        return response;
    }

    SCARDCONTEXT context_ = 0;
    SCARDHANDLE card_ = 0;
    DWORD protocol_ = 0;
};

TEST_F(PcscSmoke, SelectsTheApplicationAndReadsTheOdf) {
    const std::string reader = vpcdReader();
    ASSERT_FALSE(reader.empty()) << "no vpcd reader";
    ASSERT_EQ(SCardConnect(context_, reader.c_str(), SCARD_SHARE_SHARED,
                           SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card_, &protocol_),
              SCARD_S_SUCCESS);
    EXPECT_EQ(protocol_, static_cast<DWORD>(SCARD_PROTOCOL_T1));

    Bytes select = transmit({0x00, 0xA4, 0x04, 0x00, 0x0C, 0xA0, 0x00, 0x00, 0x00, 0x63, 0x50, 0x4B,
                             0x43, 0x53, 0x2D, 0x31, 0x35, 0x00});
    ASSERT_GE(select.size(), 2u);
    EXPECT_EQ(select[select.size() - 2], 0x90);
    EXPECT_EQ(select[0], 0x62); // FCP of the application DF

    EXPECT_EQ(transmit({0x00, 0xA4, 0x02, 0x0C, 0x02, 0x50, 0x31}), (Bytes{0x90, 0x00}));
    Bytes odf = transmit({0x00, 0xB0, 0x00, 0x00, 0x00});
    ASSERT_EQ(odf.size(), 258u); // the whole 256-byte file
    EXPECT_EQ(odf[256], 0x90);
    // [0] privateKeys path 4400 opens the ODF.
    EXPECT_EQ(Bytes(odf.begin(), odf.begin() + 8),
              (Bytes{0xA0, 0x06, 0x30, 0x04, 0x04, 0x02, 0x44, 0x00}));
}

} // namespace
