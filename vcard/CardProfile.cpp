#include "vcard/CardProfile.hpp"

#include <stdexcept>

namespace vcard {

const char* profileName(CardProfile profile) {
    return profile == CardProfile::Iso ? "iso" : "native";
}

CardProfile profileFromName(const std::string& name) {
    for (CardProfile profile : {CardProfile::Native, CardProfile::Iso})
        if (name == profileName(profile))
            return profile;
    throw std::invalid_argument("unknown card profile \"" + name + "\" (native or iso)");
}

} // namespace vcard
