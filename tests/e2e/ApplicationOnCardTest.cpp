#include "AppError.hpp"
#include "CardFixture.hpp"

#include "app/object/IPin.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace {

namespace fs = app::pkcs15::fs;

// The application on the personalised card, reached in-process or through
// pcscd as the host's transports reach it.
class ApplicationOnCard : public hosttest::CardTest {
protected:
    void SetUp() override {
        hosttest::CardTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        application_ = boost::make_shared<app::pkcs15::P15Application>(
            boost::shared_ptr<const card::ICard>(card_), "test", "");
        application_->select(*channel_);
    }

    mw::ByteBuffer fileIdOf(fs::P15File::FileId kind) const {
        return application_->getODF()->getFileId(*channel_, *files(), kind);
    }

    boost::shared_ptr<app::pkcs15::P15Application> application_;
};

TEST_P(ApplicationOnCard, EfOdfLocatesTheFiveDirectoryFiles) {
    EXPECT_EQ(fileIdOf(fs::P15File::AODF), (mw::ByteBuffer{0x44, 0x08}));
    EXPECT_EQ(fileIdOf(fs::P15File::PrKDF), (mw::ByteBuffer{0x44, 0x00}));
    EXPECT_EQ(fileIdOf(fs::P15File::PuKDF), (mw::ByteBuffer{0x44, 0x01}));
    EXPECT_EQ(fileIdOf(fs::P15File::CDF), (mw::ByteBuffer{0x44, 0x04}));
    EXPECT_EQ(fileIdOf(fs::P15File::DODF), (mw::ByteBuffer{0x44, 0x07}));
    EXPECT_TRUE(fileIdOf(fs::P15File::TokenInfo).empty()) << "EF(ODF) does not list EF(TokenInfo)";
    EXPECT_APP_ERROR(fileIdOf(static_cast<fs::P15File::FileId>(6)),
                     "unknown PKCS#15 file type parameter");
}

TEST_P(ApplicationOnCard, ListsThePinsAndNoObjectsOfAFreshCard) {
    const auto& pins = application_->getAuthObjects(*channel_);
    ASSERT_EQ(pins.size(), 3u);
    const auto userPin = boost::dynamic_pointer_cast<app::object::IPin>(pins[0]);
    ASSERT_TRUE(userPin);
    EXPECT_EQ(userPin->getPinReference().value_or(0), 0x01);
    EXPECT_TRUE(application_->getPrivateKeys(*channel_).empty());
    EXPECT_TRUE(application_->getPublicKeys(*channel_).empty());
    EXPECT_TRUE(application_->getCertificates(*channel_).empty());
    EXPECT_TRUE(application_->getDataObjects(*channel_).empty());
}

TEST_P(ApplicationOnCard, AllocatesFromTheFirstFreeIdentifiers) {
    EXPECT_EQ(
        application_->getODF()->getDODF()->getFreeFileId(*channel_, *files(), fs::DataObjectFile),
        (mw::ByteBuffer{0xDF, 0x02, 0x0D, 0x81}));
    const auto pair = application_->getFreeKeyPairReference(*channel_, 2048);
    EXPECT_EQ(pair.first.keyReference, 0x8D);
    EXPECT_EQ(pair.second.fileId, (mw::ByteBuffer{0x0F, 0x0D}));
}

INSTANTIATE_TEST_SUITE_P(Transports, ApplicationOnCard,
                         ::testing::Values(hosttest::TransportKind::InProcess,
                                           hosttest::TransportKind::Pcsc),
                         hosttest::transportName);

} // namespace
