#include "AppError.hpp"
#include "CardFixture.hpp"

#include "app/pkcs15/P15Application.hpp"
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

INSTANTIATE_TEST_SUITE_P(Transports, ApplicationOnCard,
                         ::testing::Values(hosttest::TransportKind::InProcess,
                                           hosttest::TransportKind::Pcsc),
                         hosttest::transportName);

} // namespace
