#include "AppCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "mw/Hex.hpp"

#include <gtest/gtest.h>

using namespace apptest;
using app::pkcs15::fs::P15File;

namespace {

const mw::ByteBuffer odfFile{0x50, 0x31};
const mw::ByteBuffer prkdf{0x44, 0x00};

class Directories : public ::testing::Test {
protected:
    mw::ByteBuffer fileIdOf(P15File::FileId kind) const {
        return application_->getODF()->getFileId(*card_.channel, *card_.files(), kind);
    }
    // Replaces EF(ODF) on the card (the SO PIN guards it).
    void writeOdf(const mw::ByteBuffer& content) {
        card_.verifyPin(0x03, soPin);
        card_.writeFile(odfFile, content);
        application_->clearCache();
    }

    AppCard card_;
    boost::shared_ptr<app::pkcs15::P15Application> application_ = card_.application();
};

// What EF(ODF) lists, read in the forms cards write it: padding (00 or FF)
// ends the entries, an entry giving objects instead of a path is passed over.
TEST_F(Directories, EfOdfIsReadUpToItsPaddingTakingPathsOnly) {
    const struct {
        mw::ByteBuffer odf;
        P15File::FileId kind;
        mw::ByteBuffer expected;
    } rows[] = {{mw::fromHex("00 A806 3004 04024408"), P15File::AODF, {}},
                {mw::fromHex("A804 A0023000 A006 3004 04024400"), P15File::AODF, {}},
                {mw::fromHex("A804 A0023000 A006 3004 04024400"), P15File::PrKDF, prkdf},
                {mw::fromHex("A406 3004 04024404 FFFF"), P15File::CDF, bytes({0x44, 0x04})}};
    for (const auto& row : rows) {
        SCOPED_TRACE(mw::toHex(row.odf));
        writeOdf(row.odf);
        EXPECT_EQ(fileIdOf(row.kind), row.expected);
    }
}

TEST_F(Directories, AnEntryOutsideTheFiveKindsFailsTheReadUntilTheFileIsMended) {
    const mw::ByteBuffer original = card_.readFile(odfFile);
    // trustedCertificates [5] before a valid CDF entry.
    writeOdf(bytes({0xA5, 0x06, 0x30, 0x04, 0x04, 0x02, 0x44, 0x05, 0xA4, 0x06, 0x30, 0x04, 0x04,
                    0x02, 0x44, 0x04}));
    EXPECT_THROW(fileIdOf(P15File::CDF), app::InvalidDataException);
    EXPECT_THROW(fileIdOf(P15File::CDF), app::InvalidDataException) << "a failed read is retried";

    card_.writeFile(odfFile, original);
    EXPECT_EQ(fileIdOf(P15File::CDF), bytes({0x44, 0x04}));
}

// Directory files are read only when their objects are needed, then answer
// from the cache until cleared; clearing one rereads it and EF(ODF) only.
TEST_F(Directories, AreReadWhenNeededAndClearContentRereadsThatFileAndEfOdf) {
    card_.recorder->clear();
    const auto& prkdf = application_->getODF()->getPrKDF();
    EXPECT_TRUE(card_.recorder->sent(0xB0).empty()) << "getting the file object read the card";
    EXPECT_TRUE(prkdf->values(*card_.channel).empty());
    application_->getODF()->getCDF()->values(*card_.channel);

    card_.verifyPin(0x01, userPin);
    card_.writeFile(bytes({0x44, 0x00}), rsaPrivateKeyEntry(0x81, bytes({0x0E, 0x01})));
    EXPECT_TRUE(prkdf->values(*card_.channel).empty()) << "the cache answers until cleared";
    prkdf->clearContent();
    card_.recorder->clear();
    EXPECT_EQ(prkdf->values(*card_.channel).size(), 1u);
    application_->getODF()->getCDF()->values(*card_.channel);
    std::vector<mw::ByteBuffer> selected;
    for (const mw::ByteBuffer& select : card_.recorder->sent(0xA4)) {
        selected.push_back(select.get(5 + select.get(4) - 2, 2)); // the file of its path
    }
    EXPECT_EQ(selected, (std::vector<mw::ByteBuffer>{odfFile, bytes({0x44, 0x00})}))
        << "EF(ODF) and EF(PrKDF) are read again, EF(CDF) comes from the cache";
}

// File objects kept past their application fail with a clear error.
TEST_F(Directories, OutlivingTheirOwnersFailsClearly) {
    const char* const gone = "failed to get shared ptr from weak ptr";
    boost::shared_ptr<app::pkcs15::fs::ODF> odf = application_->getODF();
    const boost::shared_ptr<app::pkcs15::fs::CDF> cdf = odf->getCDF();
    application_.reset();
    EXPECT_APP_ERROR(odf->getPrKDF(), app::ApplicationException, gone);
    EXPECT_APP_ERROR(odf->getCDF(), app::ApplicationException, gone); // created before
    odf.reset();
    EXPECT_APP_ERROR(cdf->getFileId(*card_.channel, *card_.files()), app::ApplicationException,
                     gone);
}

} // namespace
