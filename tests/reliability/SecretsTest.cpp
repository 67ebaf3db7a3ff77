// A PIN changed and verified through the whole stack (application, card
// layer, transport, virtual card, its image file) leaves no copy of itself in
// memory given back to the runtime: not as typed, not padded, not as the
// hexadecimal text of the card image. This binary replaces free() to look.
#include "AppOnCard.hpp"
#include "FreeHook.hpp"

#include "app/object/IPin.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

const char* const newPin = "975318";

class Secrets : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override { vcard::VirtualCard(vcard::personalise()).save(image_); }
    void TearDown() override { std::filesystem::remove(image_); }

    // Changes the user PIN to newPin, verifies it, and opens the card again
    // from its image.
    void changeVerifyAndReload() const {
        support::AppOnCard card(vcard::CardImage::load(image_), nullptr, image_);
        const auto application = card.open();
        const auto pin = boost::dynamic_pointer_cast<app::object::IPin>(
            application->getAuthObjects(*card.channel).at(0));
        pin->change(*card.channel, support::ascii(support::userPin), support::ascii(newPin));
        pin->authenticate(*card.channel, support::ascii(newPin));
        support::AppOnCard reloaded(vcard::CardImage::load(image_));
        reloaded.open();
    }

    const std::string image_ = (std::filesystem::temp_directory_path() /
                                ("p15-secrets-" + std::to_string(getpid()) + ".json"))
                                   .string();
};

TEST_P(Secrets, NoReleasedBlockHoldsTheNewPin) {
    freehook::lookFor(GetParam());
    changeVerifyAndReload();
    const std::size_t holding = freehook::blocksFreedHoldingSecret();
    freehook::lookFor("");
    EXPECT_EQ(holding, 0u) << "blocks released holding " << GetParam();
}

// As typed, as the card stores it (padded with FF), and as the image's text.
INSTANTIATE_TEST_SUITE_P(Forms, Secrets,
                         ::testing::Values("975318", "975318\xFF\xFF", "393735333138FFFF"));

} // namespace
