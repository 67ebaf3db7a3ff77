#ifndef TESTS_E2E_SAMPLEFILE_HPP
#define TESTS_E2E_SAMPLEFILE_HPP

#include "CardFixture.hpp"

#include "app/pkcs15/P15Application.hpp"
#include "mw/ByteBuffer.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <fstream>
#include <string>

namespace hosttest {

// The bytes of a sample file of tests/data/samples: hex lines, '#' comments.
inline mw::ByteBuffer loadSample(const std::string& name) {
    std::ifstream file(std::string(P15_SAMPLES_DIR) + "/" + name);
    std::string line, hex;
    while (std::getline(file, line)) {
        if (!line.empty() && line[0] != '#') {
            hex += line;
        }
    }
    mw::ByteBuffer bytes(hex.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes.data()[i] = static_cast<unsigned char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

// Directory files of real cards put on the card of CardTest, user PIN verified.
class SampleCard : public CardTest {
protected:
    static mw::ByteBuffer fileId(std::uint16_t id) {
        return mw::ByteBuffer{static_cast<unsigned char>(id >> 8), static_cast<unsigned char>(id)};
    }
    // Puts `bytes` in the file, 00 up to its end, opens the application anew
    // and returns what the file holds then.
    mw::ByteBuffer put(std::uint16_t id, const mw::ByteBuffer& bytes) {
        verifyUserPin();
        files()->select(*channel_, fileId(id));
        mw::ByteBuffer content(files()->size(*channel_));
        std::copy(bytes.begin(), bytes.end(), content.begin());
        files()->update(*channel_, 0, content);
        application_ = boost::make_shared<app::pkcs15::P15Application>(
            boost::shared_ptr<const card::ICard>(card_), "test", "");
        return content;
    }
    mw::ByteBuffer put(std::uint16_t id, const std::string& sample) {
        return put(id, loadSample(sample));
    }
    mw::ByteBuffer content(std::uint16_t id) const {
        files()->select(*channel_, fileId(id));
        return files()->read(*channel_, 0, 0);
    }
    // `content` with `from` replaced by `to` at its first place.
    static mw::ByteBuffer replaced(const mw::ByteBuffer& content, const std::string& from,
                                   const std::string& to) {
        const auto at = std::search(content.begin(), content.end(), from.begin(), from.end());
        EXPECT_NE(at, content.end()) << from;
        mw::ByteBuffer result(content);
        std::copy(to.begin(), to.end(), result.begin() + (at - content.begin()));
        return result;
    }

    boost::shared_ptr<app::pkcs15::P15Application> application_;
};

} // namespace hosttest

#endif
