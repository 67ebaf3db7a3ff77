#include "AppCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "card/CardException.hpp"

#include <algorithm>
#include <gtest/gtest.h>

using namespace apptest;
namespace fs = app::pkcs15::fs;

namespace {

const mw::ByteBuffer prkdfFile{0x44, 0x00};

// Offset and data of an UPDATE BINARY command.
std::pair<std::size_t, mw::ByteBuffer> updateOf(const mw::ByteBuffer& command) {
    const std::size_t offset = (command.get(2) << 8) | command.get(3);
    return {offset, command.get(5, command.get(4))};
}

class EntryRewrite : public ::testing::Test {
protected:
    void SetUp() override {
        card_.verifyPin(0x01, userPin);
        card_.writeFile(prkdfFile, concat({first_, ecPrivateKeyEntry(), last_}));
        application_->clearCache();
    }

    const fs::PrKDF& prkdf() const { return *application_->getODF()->getPrKDF(); }

    AppCard card_;
    boost::shared_ptr<app::pkcs15::P15Application> application_ = card_.application();
    const app::pkcs15::P15Application::ChannelScope bound_{*application_, *card_.channel};
    const mw::ByteBuffer first_ = rsaPrivateKeyEntry(0x81, bytes({0x0E, 0x01}));
    const mw::ByteBuffer last_ = rsaPrivateKeyEntry(0x82, bytes({0x0E, 0x02}));
};

TEST_F(EntryRewrite, WritesOnlyTheBytesThatChanged) {
    mw::ByteBuffer relabelled = last_;
    relabelled.data()[relabelled.size() - 1] ^= 0x01; // last byte of the modulus length
    card_.recorder->clear();

    prkdf().updateEncodedAttributes(last_, relabelled);

    const std::vector<mw::ByteBuffer> updates = card_.recorder->sent(0xD6);
    ASSERT_EQ(updates.size(), 1u);
    const auto update = updateOf(updates[0]);
    EXPECT_EQ(update.first, first_.size() + ecPrivateKeyEntry().size() + last_.size() - 1);
    EXPECT_EQ(update.second, bytes({relabelled.get(relabelled.size() - 1)}));

    card_.recorder->clear();
    prkdf().updateEncodedAttributes(relabelled, relabelled);
    EXPECT_TRUE(card_.recorder->sent(0xD6).empty()) << "an unchanged entry writes nothing";
}

TEST_F(EntryRewrite, BytesAfterTheEntriesStayUnlessTheEntriesNeedThem) {
    const mw::ByteBuffer entries = concat({first_, ecPrivateKeyEntry(), last_});
    mw::ByteBuffer junk(64); // left behind by some other writer; reads like entries
    std::fill(junk.begin(), junk.end(), 0x5A);
    card_.writeFile(prkdfFile, concat({entries, bytes({0xFF, 0xFF, 0xFF}), junk}));
    application_->clearCache();
    const mw::ByteBuffer before = card_.readFile(prkdfFile);

    const mw::ByteBuffer shorter = rsaPrivateKeyEntry(0x81, bytes({0x01}));
    const std::size_t freed = first_.size() - shorter.size();
    ASSERT_GT(freed, 0u);
    prkdf().updateEncodedAttributes(first_, shorter);
    mw::ByteBuffer freedPadding(freed);
    std::fill(freedPadding.begin(), freedPadding.end(), 0xFF);
    const mw::ByteBuffer shrunk =
        concat({shorter, ecPrivateKeyEntry(), last_, freedPadding,
                before.get(entries.size(), before.size() - entries.size())});
    EXPECT_EQ(card_.readFile(prkdfFile), shrunk) << "freed bytes take the file's own padding";

    // Longer than the padding: the new entry runs into the junk, which must
    // then be cut off by one padding byte and otherwise stay.
    const mw::ByteBuffer added = rsaPrivateKeyEntry(0x83, bytes({0x0E, 0x03}));
    const std::size_t used = entries.size() - freed;
    ASSERT_GT(added.size(), freed + 3);
    card_.recorder->clear();
    prkdf().updateEncodedAttributes(mw::ByteBuffer(), added);
    mw::ByteBuffer grown = shrunk;
    std::copy(added.begin(), added.end(), grown.begin() + used);
    grown.data()[used + added.size()] = 0xFF;
    EXPECT_EQ(card_.readFile(prkdfFile), grown);
    // The appended bytes first, the byte that makes them an entry last.
    const std::vector<mw::ByteBuffer> updates = card_.recorder->sent(0xD6);
    ASSERT_EQ(updates.size(), 2u);
    EXPECT_EQ(updateOf(updates[0]).first, used + 1);
    EXPECT_EQ(updateOf(updates[0]).second.size(), added.size());
    EXPECT_EQ(updateOf(updates[1]).first, used);
    EXPECT_EQ(updateOf(updates[1]).second, bytes({added.get(0)}));

    prkdf().clearContent();
    EXPECT_EQ(prkdf().values(*card_.channel).size(), 4u);
}

TEST_F(EntryRewrite, RefusalsLeaveTheFileAsItWas) {
    const mw::ByteBuffer before = card_.readFile(prkdfFile);
    EXPECT_APP_ERROR(
        prkdf().updateEncodedAttributes(rsaPrivateKeyEntry(0x99, bytes({0x0E, 0x09})), first_),
        app::ApplicationException, "unable to update encoded attributes for requested file id");
    mw::ByteBuffer huge(before.size());
    std::copy(first_.begin(), first_.end(), huge.begin());
    EXPECT_APP_ERROR(prkdf().updateEncodedAttributes(mw::ByteBuffer(), huge),
                     app::ApplicationException,
                     "unable to update encoded attributes for requested file id");
    EXPECT_EQ(card_.readFile(prkdfFile), before);
}

TEST_F(EntryRewrite, ACardRefusalReachesTheCallerAndKeepsTheCacheTrue) {
    card_.service<card::service::IPinManagementService>("PinManagementService")
        ->deauthenticate(*card_.channel, hosttest::pinReference(0x01));
    const mw::ByteBuffer added = rsaPrivateKeyEntry(0x83, bytes({0x0E, 0x03}));
    EXPECT_THROW(prkdf().updateEncodedAttributes(mw::ByteBuffer(), added), card::CardException);
    EXPECT_EQ(prkdf().values(*card_.channel).size(), 3u);
}

} // namespace
