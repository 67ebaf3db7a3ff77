#include "AppCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15ApplicationPlugin.hpp"
#include "app/pkcs15/detail/WallClock.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <boost/property_tree/ini_parser.hpp>

using namespace apptest;
using app::pkcs15::P15Application;
using app::pkcs15::P15ApplicationPlugin;
namespace fs = app::pkcs15::fs;

namespace {

const mw::ByteBuffer cardStatusSelect{0x00, 0xA4, 0x02, 0x0C, 0x02, 0x99, 0x99};

// SELECTs by DF name: how the application selects itself.
std::size_t applicationSelects(const AppCard& card) {
    const std::vector<mw::ByteBuffer> selects = card.recorder->sent(0xA4);
    return std::count_if(selects.begin(), selects.end(),
                         [](const mw::ByteBuffer& select) { return select.get(2) == 0x04; });
}

// Card and applet form alike: selected by AID first, down to the card status
// file last. Any success or more-data answer to the card status select finds
// the application; "not found" to it or to the selection of the application
// fails with the command and its status word, and nothing is selected after.
TEST(GetApplications, HandsBackOneApplicationSelectedDownToTheCardStatusFile) {
    AppCard probe;
    probe.open();
    const mw::ByteBuffer selectByAid = probe.recorder->sent(0xA4).front();
    const std::tuple<mw::ByteBuffer, unsigned short, bool> answers[] = {
        {cardStatusSelect, 0x9000, false}, {cardStatusSelect, 0x9000, true},
        {cardStatusSelect, 0x6100, false}, {cardStatusSelect, 0x9F10, false},
        {cardStatusSelect, 0x6A82, false}, {selectByAid, 0x6A82, false}};
    for (const auto& [command, sw, appletForm] : answers) {
        SCOPED_TRACE(mw::toHex(command) + " answered " + std::to_string(sw));
        AppCard card;
        card.recorder->answer(command, sw);
        auto applet =
            boost::make_shared<host::iso7816::Applet>(card.session, host::iso7816::pkcs15Aid());
        try {
            const auto applications =
                appletForm
                    ? P15ApplicationPlugin().getApplications(card.card, applet, *card.channel)
                    : P15ApplicationPlugin().getApplications(card.card, *card.channel);
            EXPECT_NE(sw, 0x6A82) << "a card without the file was accepted";
            ASSERT_EQ(applications.size(), 1u);
            auto application = boost::dynamic_pointer_cast<P15Application>(applications[0]);
            ASSERT_TRUE(application);
            EXPECT_EQ(application->isAppletMode(), appletForm);
            EXPECT_EQ(card.recorder->sent(0xA4).front().get(2), 0x04);
            EXPECT_EQ(card.recorder->sent(0xA4).back(), cardStatusSelect);
        } catch (const card::CardException& e) {
            EXPECT_EQ(std::make_tuple(sw, std::string(*boost::get_error_info<card::Command>(e)),
                                      *boost::get_error_info<card::StatusCode>(e),
                                      card.recorder->sent(0xA4).back()),
                      std::make_tuple(0x6A82, std::string("Select"), 0x6A82, command));
        }
    }
}

// Only "true" forces wipes (Wipe.*); a waiting time that is no number is 0.
TEST(Configuration, IsReadIntoTheThreeSettingsOrRefused) {
    // clang-format off
    const std::tuple<const char*, std::int32_t, std::int32_t, bool> cases[] = {
        {"", 0, 0, false},
        {"[Objects]\nwipeForce=True\n", 0, 0, false},
        {"[Objects]\nwipeForce=1\n", 0, 0, false},
        {"[WaitingTime]\nReselect=abc\nPinInfo=-7\n[Objects]\nwipeForce=false\n", 0, -7, false}};
    // clang-format on
    AppCard card;
    for (const auto& [text, reselect, pinInfo, wipeForce] : cases) {
        const auto application = card.open(text);
        EXPECT_EQ(std::make_tuple(application->getReselectWaitingTime(),
                                  application->getPinInfoWaitingTime(),
                                  application->isWipeForced()),
                  std::make_tuple(reselect, pinInfo, wipeForce))
            << text;
    }
    EXPECT_THROW(card.open("[WaitingTime\nReselect=1\n"), boost::property_tree::ini_parser_error);
}

// Drives the application's wall clock for one test.
class WaitingTime : public ::testing::Test {
protected:
    void SetUp() override {
        app::pkcs15::detail::WallClock::setSource([this] { return now_; });
    }
    void TearDown() override { app::pkcs15::detail::WallClock::setSource(nullptr); }

    std::int64_t now_ = 1'700'000'000'000;
    AppCard card_;
};

// Selects at each offset (milliseconds after the first selection) and
// counts the selections that reached the card; without a waiting time each
// one does. A failed selection does not count as one.
TEST_F(WaitingTime, SparesTheCardReselectionsForAWaitingTimeAfterEachSelection) {
    const auto unthrottled = card_.open();
    unthrottled->select(*card_.channel);
    ASSERT_EQ(applicationSelects(card_), 2u);
    const mw::ByteBuffer selectByAid = card_.recorder->sent(0xA4).front();
    card_.recorder->clear();
    const auto application =
        card_.open("[WaitingTime]\nReselect=5000\n[Objects]\nwipeForce=false\n");
    // Exactly the waiting time is not yet enough; each reselection starts the
    // next period.
    const std::pair<std::int64_t, std::size_t> steps[] = {
        {1000, 1}, {5000, 1}, {5001, 2}, {10001, 2}, {10002, 3}};
    const std::int64_t start = now_;
    for (const auto& step : steps) {
        now_ = start + step.first;
        application->select(*card_.channel);
        EXPECT_EQ(applicationSelects(card_), step.second) << "at +" << step.first << " ms";
    }
    card_.recorder->answer(selectByAid, 0x6A82);
    now_ += 6000;
    EXPECT_THROW(application->select(*card_.channel), card::CardException);
    now_ += 1;
    EXPECT_THROW(application->select(*card_.channel), card::CardException)
        << "the failed selection must not count as a selection";
}

// PIN information is asked of the card again only when the waiting time has
// passed, or after an authentication made it stale.
TEST_F(WaitingTime, PinInformationIsAskedOfTheCardOnlyWhenItHasPassed) {
    const auto application =
        card_.open("[WaitingTime]\nPinInfo=5000\n[Objects]\nwipeForce=false\n");
    const auto user = support::pinAt(*application, *card_.channel);
    const auto asked = [&] {
        const std::uint64_t before = card_.virtualCard->instrumentation().counters().commands;
        user->getPinInfo(*card_.channel);
        return card_.virtualCard->instrumentation().counters().commands - before;
    };
    EXPECT_EQ(asked(), 1u);
    now_ += 5000;
    EXPECT_EQ(asked(), 0u) << "within the waiting time";
    now_ += 1;
    EXPECT_EQ(asked(), 1u) << "past it";
    user->authenticate(*card_.channel, hosttest::text(userPin));
    EXPECT_EQ(asked(), 1u) << "an authentication makes the status stale";
}

// A second channel to the same card that counts the commands it carries.
class CountingChannel : public card::IChannel, public card::ICardTransport {
public:
    explicit CountingChannel(const card::ICardTransport& card)
        : card_(card) {}
    card::ICardTransport& transport(int) const override {
        return const_cast<CountingChannel&>(*this);
    }
    mw::ByteBuffer getAtr() const override { return card_.getAtr(); }
    boost::shared_ptr<mw::ByteBuffer> transmit(const card::Apdu& command) const override {
        ++commands;
        return card_.transmit(command);
    }
    void beginTransaction() const override { card_.beginTransaction(); }
    void endTransaction() const override { card_.endTransaction(); }

    mutable std::size_t commands = 0;

private:
    const card::ICardTransport& card_;
};

const char* const unbound = "no card channel: call this inside an operation that is given one";

// A channel serves only the operation given it; scopes nest and unwind on
// exceptions.
TEST(ChannelBinding, AChannelServesOnlyTheOperationThatWasGivenIt) {
    AppCard card;
    const auto application = card.open();
    {
        CountingChannel passing(*card.recorder);
        EXPECT_EQ(application->getODF()->getCDF()->getFreeFileId(passing, *card.files(),
                                                                 fs::CertificateFile),
                  bytes({0xDF, 0x02, 0xC0, 0x01}));
        EXPECT_GT(passing.commands, 0u);
    }
    // Neither the select's channel nor the destroyed one may serve these.
    card.recorder->clear();
    const auto& prkdf = *application->getODF()->getPrKDF();
    const mw::ByteBuffer entry = rsaPrivateKeyEntry(0x81, bytes({0x0E, 0x01}));
    EXPECT_APP_ERROR(application->getFreeFileId(fs::CertificateFile), app::ApplicationException,
                     unbound);
    EXPECT_APP_ERROR(application->getFreeKeyReference(fs::RsaPrivateKey1024),
                     app::ApplicationException, unbound);
    EXPECT_APP_ERROR(prkdf.updateEncodedAttributes(mw::ByteBuffer(), entry),
                     app::ApplicationException, unbound);
    EXPECT_TRUE(card.recorder->sent(0xD6).empty());

    card.verifyPin(0x01, userPin);
    CountingChannel inner(*card.recorder);
    {
        const P15Application::ChannelScope outerScope(*application, *card.channel);
        {
            const P15Application::ChannelScope innerScope(*application, inner);
            prkdf.updateEncodedAttributes(mw::ByteBuffer(), entry);
        }
        const std::size_t innerCommands = inner.commands;
        EXPECT_GT(innerCommands, 0u) << "the entry was written through the inner channel";
        prkdf.updateEncodedAttributes(entry, rsaPrivateKeyEntry(0x82, bytes({0x0E, 0x02})));
        EXPECT_EQ(inner.commands, innerCommands) << "the outer operation got its channel back";
    }
    // In applet mode the allocation fails inside the scope it opened.
    const auto applet = card.appletApplication();
    EXPECT_APP_ERROR(applet->getODF()->getPrKDF()->getFreeKeyReference(inner, *card.files(), 1024),
                     app::ApplicationException,
                     "File id range for requested object type not found");
    EXPECT_APP_ERROR(applet->getFreeKeyReference(fs::RsaPrivateKey1024), app::ApplicationException,
                     unbound);
}

} // namespace
