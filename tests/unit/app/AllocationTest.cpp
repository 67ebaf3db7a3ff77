#include "AppCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/IDataObject.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/pkcs15/detail/util.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "mw/Hex.hpp"

using namespace apptest;
namespace fs = app::pkcs15::fs;
using app::pkcs15::P15Application;

namespace {

class Allocation : public ::testing::Test {
protected:
    void SetUp() override { card_.verifyPin(0x01, userPin); }

    // Puts entries into a directory file and lets the application see them.
    void store(const mw::ByteBuffer& file, const mw::ByteBuffer& entries) {
        card_.writeFile(file, entries);
        application_->clearCache();
    }

    AppCard card_;
    boost::shared_ptr<P15Application> application_ = card_.open();
    const P15Application::ChannelScope bound_{*application_, *card_.channel};
};

// Certificates and data objects share one identifier space. Paths from the
// MF, from the current DF or with index and length, in entries of every kind
// (a raw external data object, an EC key): each file named is in use.
TEST_F(Allocation, AFileNamedInAnyFormByAnyEntryIsInUse) {
    store(cdfFile,
          certificateEntry("cert", bytes({0x3F, 0x00, 0x50, 0x15, 0xDF, 0x02, 0x0D, 0x81})));
    store(dodfFile, mw::fromHex("A014 3000 3000 A10E 300C 0404DF020D82 020100 800110"));
    store(prkdfFile, mw::fromHex("A018 3000 3006 040145 030100 A10C 300A 3008 04063FFFDF020D83"));
    EXPECT_EQ(application_->getFreeFileId(fs::DataObjectFile), bytes({0xDF, 0x02, 0x0D, 0x84}));
}

// Another program lists a value file after this application read the
// directories: the file met on the card is that program's and keeps its
// value; the new data object goes to the next file.
TEST_F(Allocation, AValueFileThatAnotherEntryNamesIsNotTakenOver) {
    const mw::ByteBuffer theirs{0xDF, 0x02, 0x0D, 0x81};
    ASSERT_EQ(application_->getFreeFileId(fs::DataObjectFile), theirs);
    card_.createValueFile(theirs, 2);
    card_.writeFile(theirs, bytes({0x7E, 0x57}));
    card_.writeFile(cdfFile, certificateEntry("theirs", theirs));

    const auto mine =
        application_->createDataObject(app::object::IDataObject::OpaqueDataObject, {});
    mine->setValue(bytes({0x01}));
    application_->writeCardObject(*card_.channel, *mine);

    EXPECT_EQ(card_.readFile(theirs), bytes({0x7E, 0x57}));
    EXPECT_EQ(card_.readFile(bytes({0xDF, 0x02, 0x0D, 0x82})), bytes({0x01}));
}

TEST_F(Allocation, TheLastFileIdIsHandedOutThenExhaustionIsReportedInTheDirectorysOwnWords) {
    mw::ByteBuffer entries;
    for (unsigned int id = 0xDF020D81; id < 0xDF020DFF; ++id) {
        entries.append(dataObjectEntry("d", app::pkcs15::util::idToBytes(id)));
    }
    store(dodfFile, entries);
    EXPECT_EQ(application_->getFreeFileId(fs::DataObjectFile), bytes({0xDF, 0x02, 0x0D, 0xFF}));

    entries.append(dataObjectEntry("d", bytes({0xDF, 0x02, 0x0D, 0xFF})));
    store(dodfFile, entries);
    EXPECT_APP_ERROR(application_->getFreeFileId(fs::DataObjectFile), app::ApplicationException,
                     "unable to find free file id");
    EXPECT_APP_ERROR(application_->getODF()->getDODF()->getFreeFileId(
                         *card_.channel, *card_.files(), fs::DataObjectFile),
                     app::OutOfMemoryException, "maximum number of data objects reached");
    EXPECT_EQ(application_->getFreeFileId(fs::CertificateFile), bytes({0xDF, 0x02, 0xC0, 0x01}))
        << "other ranges are unaffected";
}

// Entries for the 1024-bit key ids `first` to `last`.
mw::ByteBuffer keyEntries(bool privateKeys, unsigned char first, unsigned char last) {
    mw::ByteBuffer keys;
    for (unsigned char kid = first; kid <= last; ++kid) {
        const unsigned char reference = 0x80 | kid;
        keys.append(privateKeys ? rsaPrivateKeyEntry(reference, bytes({0x0E, kid}))
                                : rsaPublicKeyEntry(reference, bytes({0x0F, kid})));
    }
    return keys;
}

// The last of six 1024-bit key ids is handed out, alone and as a pair; a
// seventh is refused in each directory's words, while 1536 bits still has room.
// A pair needs its id free in both directories.
TEST_F(Allocation, TheLastKeyIdIsHandedOutThenExhaustionIsReportedPerDirectory) {
    store(prkdfFile, keyEntries(true, 1, 5));
    store(pukdfFile, keyEntries(false, 1, 5));
    const card::service::KeyRef last = application_->getFreeKeyReference(fs::RsaPrivateKey1024);
    EXPECT_EQ(last.keyReference, 0x86);
    EXPECT_EQ(last.fileId, bytes({0x0E, 0x06}));
    EXPECT_EQ(application_->getFreeKeyPairReference(*card_.channel, 1024).second.fileId,
              bytes({0x0F, 0x06}));

    store(prkdfFile, keyEntries(true, 1, 6));
    EXPECT_APP_ERROR(application_->getFreeKeyReference(fs::RsaPrivateKey1024),
                     app::ApplicationException, "unable to find free key reference");
    EXPECT_APP_ERROR(application_->getODF()->getPrKDF()->getFreeKeyReference(*card_.channel,
                                                                             *card_.files(), 1024),
                     app::ApplicationException, "maximum number of private keys reached");
    EXPECT_EQ(application_->getFreeKeyReference(fs::RsaPrivateKey1536).keyReference, 0x87);

    store(prkdfFile, mw::ByteBuffer());
    store(pukdfFile, keyEntries(false, 1, 6));
    EXPECT_APP_ERROR(application_->getFreeKeyPairReference(*card_.channel, 1024),
                     app::ApplicationException, "maximum number of key pairs reached");
}

// A private key file left alone on the card.
TEST_F(Allocation, KeyPairsAvoidKeyFilesLeftOnTheCard) {
    card::service::KeyRef leftover;
    leftover.keyReference = 0x81;
    leftover.modulusBits = 1024;
    card_.service<card::service::IFileSystemService>("FileSystemService")
        ->createFile(*card_.channel, card::service::PrivateKeyCreateParams(leftover, {}));

    EXPECT_EQ(application_->getFreeKeyReference(fs::RsaPrivateKey1024).fileId, bytes({0x0E, 0x02}))
        << "an import takes the next key id, as a key generation does";
    const auto pair = application_->getFreeKeyPairReference(*card_.channel, 1024);
    EXPECT_EQ(std::make_tuple(pair.first.keyReference, pair.first.fileId, pair.second.keyReference,
                              pair.second.fileId),
              std::make_tuple(0x82, bytes({0x0E, 0x02}), 0x82, bytes({0x0F, 0x02})));
    EXPECT_APP_ERROR(application_->getFreeKeyPairReference(*card_.channel, 512),
                     app::ApplicationException, "invalid modulus size");
}

// A prime one byte longer than half the modulus still gives a 1024-bit
// product; the import refuses it before any key container is made.
TEST_F(Allocation, AnImportedPrimeLongerThanHalfTheModulusIsRefusedBeforeTheCard) {
    mw::ByteBuffer p(65), q(64);
    std::fill(p.begin(), p.end(), 0x01);
    std::fill(q.begin(), q.end(), 0xC1);
    const auto key =
        boost::dynamic_pointer_cast<app::object::IPrivateRSAKey>(application_->createPrivateKey(
            app::object::IPrivateKey::RsaPrivateKey, support::userPinRules()));
    key->setPublicExponent(bytes({0x01, 0x00, 0x01}));
    key->setCrtComponents(p, q, bytes({1}), bytes({2}), bytes({3}), bytes({4}));
    ASSERT_EQ(key->getModulusLength(), 1024);
    card_.recorder->clear();
    EXPECT_APP_ERROR(application_->writeCardObject(*card_.channel, *key), app::InvalidDataException,
                     "invalid crt component size: p");
    EXPECT_TRUE(card_.recorder->sent(0xE0).empty()) << "no key container was created";
    EXPECT_TRUE(card_.recorder->sent(0xD6).empty()) << "no entry was written";
}

} // namespace
