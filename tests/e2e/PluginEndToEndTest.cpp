// The plugin as a host loads it, and the application it hands out locating
// its directory files through EF(ODF).
#include "AppError.hpp"
#include "CardFixture.hpp"

#include "app/IApplication.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "host/loader/PluginLoader.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>
#include <memory>

namespace {

// The host's configuration store, holding at most "plugin.conf".
class Configuration : public plugin::IConfigurationSource {
public:
    explicit Configuration(boost::optional<std::string> text = boost::none)
        : text_(std::move(text)) {}
    boost::optional<std::string> readFile(const std::string& name) const override {
        return name == "plugin.conf" ? text_ : boost::none;
    }

private:
    boost::optional<std::string> text_;
};

class PluginEndToEnd : public hosttest::CardTest {
protected:
    std::unique_ptr<host::PluginLoader> load(const plugin::IConfigurationSource& source) const {
        return std::make_unique<host::PluginLoader>(P15APP_PATH, source);
    }
};

TEST_P(PluginEndToEnd, HandsTheHostOneSelectedApplication) {
    const auto loader = load(Configuration());
    const auto applications = loader->getApplications(card_, *channel_);

    ASSERT_EQ(applications.size(), 1u);
    EXPECT_EQ(applications[0]->getLabel(), "Arvel PKCS#15 Application");
    EXPECT_EQ(applications[0]->getAid(), host::iso7816::pkcs15Aid());
    EXPECT_NO_THROW(applications[0]->select(*channel_));
}

// An applet host's application, kept after the plugin that made it is gone.
TEST_P(PluginEndToEnd, AppletHostsGetApplicationsThatOutliveThePlugin) {
    std::vector<boost::shared_ptr<app::IApplication>> applications;
    {
        const auto loader = load(Configuration());
        auto applet =
            boost::make_shared<host::iso7816::Applet>(session_, host::iso7816::pkcs15Aid());
        applications = loader->getApplications(card_, applet, *channel_);
    }
    ASSERT_EQ(applications.size(), 1u);
    EXPECT_NO_THROW(applications[0]->select(*channel_));
    applications.clear(); // released through the plugin's deleter, library still mapped
}

TEST_P(PluginEndToEnd, AConfigurationThatLeavesWipingOpenIsRefusedAcrossTheBoundary) {
    const auto loader = load(Configuration(std::string("[WaitingTime]\nReselect=100\n")));
    try {
        loader->getApplications(card_, *channel_);
        FAIL() << "accepted a configuration without Objects.wipeForce";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("No such node"), std::string::npos) << e.what();
    }
    loader->plugin().configure(
        Configuration(std::string("[WaitingTime]\nReselect=100\n[Objects]\nwipeForce=false\n")));
    EXPECT_EQ(loader->getApplications(card_, *channel_).size(), 1u)
        << "the last configuration obtained wins";
}

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

// EF(ODF) read again once a directory file went stale: a kind it no longer
// lists is located nowhere, the others stay where they were.
TEST_P(ApplicationOnCard, EfOdfReadAgainDropsTheKindsItNoLongerLists) {
    if (GetParam() == hosttest::TransportKind::Pcsc) {
        GTEST_SKIP() << "rewrites EF(ODF) of a card the other tests share";
    }
    ASSERT_FALSE(fileIdOf(fs::P15File::CDF).empty());
    pins()->authenticate(*channel_, hosttest::pinReference(0x03),
                         hosttest::paddedPin(hosttest::soPin));
    files()->select(*channel_, mw::ByteBuffer{0x50, 0x31});
    const mw::ByteBuffer odf = files()->read(*channel_, 0, 0);
    mw::ByteBuffer withoutCdf(odf.size());
    std::size_t kept = 0;
    for (std::size_t at = 0; at < odf.size() && odf.get(at) != 0x00; at += 2 + odf.get(at + 1)) {
        if (odf.get(at) != 0xA4) { // certificates [4]
            const mw::ByteBuffer entry = odf.get(at, 2 + odf.get(at + 1));
            std::copy(entry.begin(), entry.end(), withoutCdf.begin() + kept);
            kept += entry.size();
        }
    }
    files()->update(*channel_, 0, withoutCdf);
    application_->getODF()->getCDF()->clearContent();
    EXPECT_TRUE(fileIdOf(fs::P15File::CDF).empty());
    EXPECT_EQ(fileIdOf(fs::P15File::DODF), (mw::ByteBuffer{0x44, 0x07}));
}

INSTANTIATE_TEST_SUITE_P(Transports, PluginEndToEnd,
                         ::testing::Values(hosttest::TransportKind::InProcess,
                                           hosttest::TransportKind::Pcsc),
                         hosttest::transportName);
INSTANTIATE_TEST_SUITE_P(Transports, ApplicationOnCard,
                         ::testing::Values(hosttest::TransportKind::InProcess,
                                           hosttest::TransportKind::Pcsc),
                         hosttest::transportName);

} // namespace
