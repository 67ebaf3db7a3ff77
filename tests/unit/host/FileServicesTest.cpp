// File access, file system and PIN services against the card, in-process and over PC/SC, and
// what a host's release leaves of its login.
#include "CardFixture.hpp"
#include "TestKeys.hpp"

#include "host/iso7816/Fcp.hpp"
#include "host/pcsc/PcscTransport.hpp"
#include "host/vcard/VirtualCardTransport.hpp"

#include <boost/make_shared.hpp>
#include <cstdlib>

namespace hosttest {
namespace {

using namespace card::service;

mw::ByteBuffer pattern(std::size_t length, unsigned char seed) {
    mw::ByteBuffer bytes(length);
    for (std::size_t i = 0; i < length; ++i) {
        bytes.data()[i] = static_cast<unsigned char>(seed + i * 7);
    }
    return bytes;
}

class FileServicesTest : public CardTest {
protected:
    // A file in DF02 (whose update right is the user PIN's).
    mw::ByteBuffer createFile(unsigned char fid, std::size_t size, AccessConditions conditions) {
        verifyUserPin();
        const mw::ByteBuffer path{0xDF, 0x02, 0x0D, fid};
        fileSystem()->createFile(*channel_, DataObjectCreateParams(path, size, conditions));
        return path;
    }

    // The PIN service of another host on this test's card, whose transport lets go of the card
    // with `onRelease` when the channel goes.
    std::pair<boost::shared_ptr<host::Channel>, boost::shared_ptr<IPinManagementService>>
    anotherHost(host::OnRelease onRelease) const {
        std::unique_ptr<card::ICardTransport> transport;
        if (virtualCard_ != nullptr) { // not owned: the test's own transport keeps the card
            transport = std::make_unique<host::VirtualCardTransport>(
                std::shared_ptr<vcard::VirtualCard>(std::shared_ptr<void>(), virtualCard_),
                onRelease);
        } else {
            const char* reader = std::getenv("P15_READER");
            transport = host::connectReader(reader ? reader : "Virtual PCD",
                                            std::chrono::seconds(10), onRelease);
        }
        const auto channel = boost::make_shared<host::Channel>(std::move(transport));
        host::iso7816::Card card(channel);
        card.selectApplication(*channel, host::iso7816::pkcs15Aid());
        return {channel, boost::dynamic_pointer_cast<IPinManagementService>(
                             card.getInterface("PinManagementService"))};
    }
};

// Every path form reaches the same file, a read from an offset takes the rest of it, and a failure
// names the file it was about. Slices and the last byte: AnFfffByteFileIsReadAndUpdatedToItsLastByte;
// the card's answers past the end: FileCommands.RefusalsOfSelectReadAndUpdateBinary (vcard).
TEST_P(FileServicesTest, PathFormsSlicesAndFailuresOfReadingAFile) {
    files()->select(*channel_, {0x3F, 0x00, 0x50, 0x15, 0x50, 0x32});
    const mw::ByteBuffer whole = files()->read(*channel_, 0, 0);
    ASSERT_EQ(whole.size(), 512u);
    EXPECT_EQ(files()->read(*channel_, 500, 0), whole.get(500, 12));
    files()->select(*channel_, {0x3F, 0x00, 0x2F, 0x00}); // a visit to the MF
    for (const mw::ByteBuffer& path : {mw::ByteBuffer{0x50, 0x32}, {0x3F, 0xFF, 0x50, 0x32}}) {
        files()->select(*channel_, path);
        EXPECT_EQ(files()->read(*channel_, 0, 0), whole);
    }
    files()->select(*channel_, {0x99, 0x99}); // 8 bytes
    EXPECT_CARD_ERROR(files()->read(*channel_, 4, 8), "Read Binary", 0x6282);
    using host::iso7816::FilePath;
    EXPECT_EQ(errorInfo<FilePath>([&] { files()->read(*channel_, 8, 1); }), "3F00/5015/9999");
    EXPECT_TRUE(files()->read(*channel_, 8, 0).empty());
    EXPECT_EQ(errorInfo<FilePath>([&] {
                  files()->select(*channel_, {0x3F, 0x00, 0x12, 0x34});
              }),
              "3F00/1234");
    EXPECT_THROW(files()->select(*channel_, {0x50}), mw::IllegalArgumentException);
}

// The largest EF, across the 7FFF/8000 line between offsets in P1-P2 and
// offset objects, and at chunk edges of both forms.
TEST_P(FileServicesTest, AnFfffByteFileIsReadAndUpdatedToItsLastByte) {
    const mw::ByteBuffer path =
        createFile(0x93, 0xFFFF, {{AccessRead, always()}, {AccessUpdate, always()}});
    const mw::ByteBuffer content = pattern(0xFFFF, 5);
    files()->update(*channel_, 0, content);
    files()->select(*channel_, path);
    EXPECT_EQ(files()->size(*channel_), 0xFFFFu);
    EXPECT_EQ(files()->read(*channel_, 0, 0), content);

    const struct {
        std::size_t offset;
        std::size_t length;
    } ranges[] = {{1, 255},    {1, 256},        {1, 510},        {1, 513},    {0x7FFF, 1},
                  {0x8000, 1}, {0x7F80, 0x100}, {0x8000, 0x200}, {0xFFFE, 1}, {0xFE00, 0x1FF}};
    mw::ByteBuffer expected = content;
    for (const auto& range : ranges) {
        const mw::ByteBuffer part =
            pattern(range.length, static_cast<unsigned char>(range.offset + range.length));
        files()->update(*channel_, range.offset, part);
        std::copy(part.begin(), part.end(), expected.begin() + range.offset);
        EXPECT_EQ(files()->read(*channel_, range.offset, range.length), part) << range.offset;
    }
    EXPECT_EQ(files()->read(*channel_, 0, 0), expected) << "nothing around the ranges changes";
    EXPECT_EQ(files()->read(*channel_, 0xFFFE, 0), expected.get(0xFFFE, 1));
    // Nothing past the last byte is sent: the card would answer with a card exception.
    EXPECT_THROW(files()->read(*channel_, 0xFFFF, 1), mw::IllegalArgumentException);
    EXPECT_THROW(files()->read(*channel_, 0x7F00, 0x8100), mw::IllegalArgumentException);
    EXPECT_THROW(files()->update(*channel_, 0xFFFE, {0x01, 0x02}), mw::IllegalArgumentException);
    fileSystem()->deleteFile(*channel_, path);
    EXPECT_CARD_ERROR(files()->select(*channel_, path), "Select", 0x6A82);
}

// The card enforces the AND and NOT conditions files are created with, deletion as update; a
// verified PIN's status answer has no count, an unknown PIN's is 6A88.
TEST_P(FileServicesTest, CreatedConditionsAreEnforcedByTheCard) {
    const SecurityConditionPtr userAndSo = boost::make_shared<AndSecurityCondition>(
        SecurityConditionList{pinVerified(0x01), pinVerified(0x03)});
    const mw::ByteBuffer guarded =
        createFile(0x91, 16, {{AccessRead, always()}, {AccessUpdate, userAndSo}});
    const mw::ByteBuffer data = pattern(16, 1);
    EXPECT_CARD_ERROR(files()->update(*channel_, 0, data), "Update Binary", 0x6982);
    pins()->authenticate(*channel_, pinReference(0x03), paddedPin(soPin));
    const PinInfo so = pins()->getPinInfo(*channel_, pinReference(0x03));
    EXPECT_EQ(so.state, PinInfo::Verified);
    EXPECT_EQ(so.triesLeft, PinInfo::UnknownTries);
    EXPECT_CARD_ERROR(pins()->getPinInfo(*channel_, pinReference(0x0A)), "Verify", 0x6A88);
    files()->update(*channel_, 0, data);
    // Past the end the card refuses the whole update (6A84), leaving the file as it was.
    EXPECT_CARD_ERROR(files()->update(*channel_, 8, pattern(9, 9)), "Update Binary", 0x6A84);
    pins()->deauthenticate(*channel_, pinReference(0x03));
    EXPECT_CARD_ERROR(files()->update(*channel_, 0, data), "Update Binary", 0x6982);
    EXPECT_EQ(files()->read(*channel_, 0, 0), data);
    EXPECT_CARD_ERROR(fileSystem()->deleteFile(*channel_, guarded), "Delete File", 0x6982);
    pins()->authenticate(*channel_, pinReference(0x03), paddedPin(soPin));
    fileSystem()->deleteFile(*channel_, guarded);
    pins()->deauthenticate(*channel_, pinReference(0x03));

    const SecurityConditionPtr userAbsent =
        boost::make_shared<NotSecurityCondition>(pinVerified(0x01));
    const mw::ByteBuffer inverted =
        createFile(0x92, 4, {{AccessRead, userAbsent}, {AccessUpdate, always()}});
    EXPECT_CARD_ERROR(files()->read(*channel_, 0, 4), "Read Binary", 0x6982);
    pins()->deauthenticate(*channel_, pinReference(0x01));
    files()->select(*channel_, inverted);
    EXPECT_EQ(files()->read(*channel_, 0, 0), mw::ByteBuffer(4));
    fileSystem()->deleteFile(*channel_, inverted);
}

// Another host verifies the user PIN and lets go of the card: the login ends with it (a reset)
// unless that host was told to keep it.
TEST_P(FileServicesTest, AnotherHostsLoginEndsWithItsReleaseUnlessKept) {
    for (const auto& [onRelease, state] : {std::pair{host::OnRelease::LogOut, PinInfo::NotVerified},
                                           {host::OnRelease::KeepLogin, PinInfo::Verified}}) {
        {
            const auto [channel, pins] = anotherHost(onRelease);
            pins->authenticate(*channel, pinReference(0x01), paddedPin(userPin));
        }
        const auto [channel, pins] = anotherHost(host::OnRelease::KeepLogin);
        EXPECT_EQ(pins->getPinInfo(*channel, pinReference(0x01)).state, state);
    }
    pins()->deauthenticate(*channel_, pinReference(0x01));
}

INSTANTIATE_TEST_SUITE_P(Transports, FileServicesTest,
                         ::testing::Values(TransportKind::InProcess, TransportKind::InProcessShort,
                                           TransportKind::Pcsc),
                         transportName);

} // namespace
} // namespace hosttest
