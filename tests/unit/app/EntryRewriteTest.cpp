#include "AppCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "card/CardException.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "card/service/IFileSystemService.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

using namespace apptest;
namespace fs = app::pkcs15::fs;

namespace {

const mw::ByteBuffer prkdfFile{0x44, 0x00};

// Files and keys anyone may read, change, delete and use.
card::service::AccessConditions openToAll() {
    using namespace card::service;
    return {
        {AccessRead | AccessUpdate | AccessExecute, boost::make_shared<AlwaysSecurityCondition>()}};
}

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

TEST_F(EntryRewrite, ReplacingAnEntryKeepsTheOthersByteForByte) {
    ASSERT_EQ(prkdf().values(*card_.channel).size(), 3u);
    const mw::ByteBuffer longer =
        rsaPrivateKeyEntry(0x81, bytes({0x3F, 0x00, 0x50, 0x15, 0x0E, 0x01}));
    card_.recorder->clear();

    prkdf().updateEncodedAttributes(first_, longer);

    const mw::ByteBuffer expected = concat({longer, ecPrivateKeyEntry(), last_});
    const mw::ByteBuffer onCard = card_.readFile(prkdfFile);
    EXPECT_EQ(onCard.get(0, expected.size()), expected);
    EXPECT_TRUE(std::all_of(onCard.begin() + expected.size(), onCard.end(), [](unsigned char b) {
        return b == 0;
    })) << "the padding after the entries stays padding";
    EXPECT_EQ(prkdf().values(*card_.channel).size(), 3u) << "the cache follows the card";
}

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
}

TEST_F(EntryRewrite, ANewEntryGoesAfterTheLastOneAndAnUnchangedOneWritesNothing) {
    const mw::ByteBuffer added = rsaPrivateKeyEntry(0x83, bytes({0x0E, 0x03}));
    prkdf().updateEncodedAttributes(mw::ByteBuffer(), added);
    const mw::ByteBuffer expected = concat({first_, ecPrivateKeyEntry(), last_, added});
    EXPECT_EQ(card_.readFile(prkdfFile).get(0, expected.size()), expected);

    card_.recorder->clear();
    prkdf().updateEncodedAttributes(added, added);
    EXPECT_TRUE(card_.recorder->sent(0xD6).empty());
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
    const std::vector<mw::ByteBuffer> updates = card_.recorder->sent(0xD6);
    ASSERT_EQ(updates.size(), 1u);
    EXPECT_EQ(updateOf(updates[0]).first, used);
    EXPECT_EQ(updateOf(updates[0]).second.size(), added.size() + 1);

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
    card::service::PinReference userPinRef;
    userPinRef.reference = 0x01;
    card_.service<card::service::IPinManagementService>("PinManagementService")
        ->deauthenticate(*card_.channel, userPinRef);
    const mw::ByteBuffer added = rsaPrivateKeyEntry(0x83, bytes({0x0E, 0x03}));
    EXPECT_THROW(prkdf().updateEncodedAttributes(mw::ByteBuffer(), added), card::CardException);
    EXPECT_EQ(prkdf().values(*card_.channel).size(), 3u);
}

// A card holding one object of each kind, with its value files and keys.
class Wipe : public ::testing::Test {
protected:
    void SetUp() override {
        card_.card->selectApplication(*card_.channel, host::iso7816::pkcs15Aid());
        card_.verifyPin(0x01, userPin);
        createValueFile(listedData_);
        createValueFile(listedCertificate_);
        createKeyPair(0x81);
        card_.writeFile(bytes({0x44, 0x07}), dataObjectEntry("data", listedData_));
        card_.writeFile(bytes({0x44, 0x04}), certificateEntry("cert", listedCertificate_));
        card_.writeFile(prkdfFile, rsaPrivateKeyEntry(0x81, bytes({0x0E, 0x01})));
        card_.writeFile(bytes({0x44, 0x01}), rsaPublicKeyEntry(0x81, bytes({0x0F, 0x01})));
    }

    void createValueFile(const mw::ByteBuffer& path) const {
        fileSystem()->createFile(*card_.channel,
                                 card::service::DataObjectCreateParams(path, 16, openToAll()));
    }
    void createKeyPair(unsigned char reference) const {
        card::service::KeyRef privateKey, publicKey;
        privateKey.keyReference = publicKey.keyReference = reference;
        privateKey.modulusBits = publicKey.modulusBits = 1024;
        privateKey.fileId = bytes({0x0E, static_cast<unsigned char>(reference & 0x1F)});
        publicKey.fileId = bytes({0x0F, static_cast<unsigned char>(reference & 0x1F)});
        fileSystem()->createFile(*card_.channel,
                                 card::service::PrivateKeyCreateParams(privateKey, openToAll()));
        fileSystem()->createFile(*card_.channel,
                                 card::service::PublicKeyCreateParams(publicKey, openToAll()));
        card_
            .service<card::service::IAsymmetricKeyManagementService>(
                "AsymmetricKeyManagementService")
            ->generateKeyPair(*card_.channel, privateKey, publicKey);
    }
    boost::shared_ptr<card::service::IFileSystemService> fileSystem() const {
        return card_.service<card::service::IFileSystemService>("FileSystemService");
    }
    bool exists(const mw::ByteBuffer& path) const {
        try {
            card_.files()->select(*card_.channel, path);
            return true;
        } catch (const card::CardException&) {
            return false;
        }
    }
    bool directoryEmpty(const mw::ByteBuffer& file) const {
        const mw::ByteBuffer content = card_.readFile(file);
        return std::all_of(content.begin(), content.end(), [](unsigned char b) { return b == 0; });
    }

    AppCard card_;
    const mw::ByteBuffer listedData_{0xDF, 0x02, 0x0D, 0x81};
    const mw::ByteBuffer listedCertificate_{0x0D, 0x01};
};

TEST_F(Wipe, RemovesWhatTheDirectoriesListAndKeepsThePins) {
    const mw::ByteBuffer orphan{0x0D, 0x02};
    createValueFile(orphan);
    const auto application = card_.application("[Objects]\nwipeForce=false\n");
    const mw::ByteBuffer pins = card_.readFile(bytes({0x44, 0x08}));

    application->wipe(*card_.channel);

    for (const mw::ByteBuffer& gone :
         {listedData_, listedCertificate_, bytes({0x0E, 0x01}), bytes({0x0F, 0x01})}) {
        EXPECT_FALSE(exists(gone));
    }
    EXPECT_TRUE(exists(orphan)) << "an ordinary wipe only removes listed objects";
    for (const mw::ByteBuffer& directory :
         {bytes({0x44, 0x00}), bytes({0x44, 0x01}), bytes({0x44, 0x04}), bytes({0x44, 0x07})}) {
        EXPECT_TRUE(directoryEmpty(directory));
    }
    EXPECT_EQ(card_.readFile(bytes({0x44, 0x08})), pins);
    EXPECT_TRUE(application->getODF()->getDODF()->values(*card_.channel).empty());
}

TEST_F(Wipe, ForcedWipeAlsoClearsWhatNoDirectoryLists) {
    const mw::ByteBuffer orphan{0x0D, 0x02};
    createValueFile(orphan);
    createKeyPair(0x8D); // 2048-bit range ids, never listed
    const auto application = card_.application("[Objects]\nwipeForce=true\n");

    application->wipe(*card_.channel);

    for (const mw::ByteBuffer& gone : {listedData_, listedCertificate_, orphan, bytes({0x0E, 0x01}),
                                       bytes({0x0F, 0x01}), bytes({0x0E, 0x0D})}) {
        EXPECT_FALSE(exists(gone));
    }
    EXPECT_TRUE(directoryEmpty(prkdfFile));
    EXPECT_FALSE(directoryEmpty(bytes({0x44, 0x08})));
}

} // namespace
