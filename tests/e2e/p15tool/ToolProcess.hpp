#ifndef TESTS_E2E_P15TOOL_TOOLPROCESS_HPP
#define TESTS_E2E_P15TOOL_TOOLPROCESS_HPP

#include "Profiles.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardFile.hpp"
#include "vcard/PinStore.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace p15tool::test {

using Arguments = std::vector<std::string>;
using Environment = std::vector<std::pair<std::string, std::string>>;

struct ToolResult {
    int exitCode = -1;
    std::string out, err;
    nlohmann::json json() const { return nlohmann::json::parse(out); }
};

/// Prompts and the lines typed at them.
using Typed = std::vector<std::pair<std::string, std::string>>;

/// The built p15tool in a session of its own, stdin from `input`; when lines are `typed`, on a
/// pseudo-terminal, which `out` holds.
ToolResult runTool(const Arguments& arguments, const Environment& environment = {},
                   const std::string& input = "/dev/null", const Typed& typed = {});

/// A fresh directory, removed with its content at the end of its scope.
struct TemporaryDirectory {
    TemporaryDirectory();
    ~TemporaryDirectory();
    std::string file(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

/// Whether `result` exited with `code`, stderr holding `says`: a failure in one line "p15tool: …".
::testing::AssertionResult exited(const ToolResult& result, int code, const std::string& says = "");
inline ::testing::AssertionResult contains(const std::string& text, const std::string& part) {
    return ::testing::IsSubstring("part", "text", part, text);
}

/// Rows of a command, its exit code and what its stderr holds, run in order through `run`.
using Expected = std::tuple<Arguments, int, std::string>;
void expectEach(const std::vector<Expected>& rows,
                const std::function<ToolResult(const Arguments&)>& run);

/// Lets `edit` change the file 3F00 5015 `fid` in the card image `image`.
void editCardFile(const std::string& image, std::uint16_t fid,
                  const std::function<void(vcard::CardFile&)>& edit);

/// Rewrites the first entry of the directory file `fid` as `edit` changes it, keeping the size.
template <class Entry, class Edit>
void editFirstEntry(const std::string& image, std::uint16_t fid, Edit edit) {
    editCardFile(image, fid, [&](vcard::CardFile& file) {
        Entry entry;
        const std::size_t used =
            app::pkcs15::oss::decode(file.content.data(), file.content.size(), entry);
        edit(entry);
        vcard::Bytes changed = app::pkcs15::oss::encode(entry);
        changed.insert(changed.end(), file.content.begin() + used, file.content.end());
        changed.resize(file.content.size());
        file.content = changed;
    });
}

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

/// A folder for a card image, the PINs in the environment.
class CardFolder : public ::testing::Test {
protected:
    ToolResult tool(Arguments arguments, const Environment& extra = {},
                    const std::string& input = "/dev/null", const Typed& typed = {}) const;
    /// tool(), failing the test unless exited(…, code, says).
    ToolResult expect(const Arguments& arguments, int code, const std::string& says = "",
                      const Environment& extra = {}, const std::string& input = "/dev/null") const;
    ToolResult succeed(const Arguments& arguments, const Environment& extra = {},
                       const std::string& input = "/dev/null") const {
        return expect(arguments, 0, "", extra, input);
    }
    void expectEach(const std::vector<Expected>& rows, const Environment& extra = {}) const;
    ToolResult init(const Environment& changed = {}, Arguments extra = {}) const;
    /// A shell command's output in the folder; a failure when it exits non-zero.
    std::string shell(const std::string& command) const;
    std::string openssl(const std::string& arguments) const {
        return shell("openssl " + arguments);
    }
    std::string file(const std::string& name) const { return directory.file(name); }
    vcard::Pin storedPin(std::uint8_t reference) const;

    TemporaryDirectory directory;
    const std::string image = directory.file("card.json");
    // clang-format off
    const Environment environment{{"USER_PIN", "2468"}, {"PUK", "13572468"}, {"SO_PIN", "97531"}, {"WRONG", "0000"}, {"NEW", "8642"}};
    // clang-format on
};

/// A card image freshly initialised, of the profile `profile()` names.
class InitialisedCard : public CardFolder {
protected:
    void SetUp() override {
        ASSERT_TRUE(exited(init({}, {"--profile", vcard::profileName(profile())}), 0));
    }
    virtual vcard::CardProfile profile() const { return vcard::CardProfile::Native; }
};

/// An InitialisedCard of the suite's profile.
class ProfiledCard : public InitialisedCard,
                     public ::testing::WithParamInterface<vcard::CardProfile> {
protected:
    vcard::CardProfile profile() const override { return GetParam(); }
    bool iso() const { return GetParam() == vcard::CardProfile::Iso; }
};

} // namespace p15tool::test

#endif
