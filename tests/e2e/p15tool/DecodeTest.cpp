// decode over the samples from real cards and over hostile dumps.
#include "ToolProcess.hpp"
#include "mw/Hex.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <tuple>

namespace p15tool::test {
namespace {

using nlohmann::json;
using namespace std::string_literals;

// Every sample decodes to typed entries, in text and in JSON, but the ODFs
// their notes call invalid, which fail in one line; the fields the notes
// describe read as they say, one for each way a field is shown.
TEST(Decode, EverySampleDecodesOrFailsInOneLine) {
    const std::multimap<std::string, std::pair<const char*, json>> fields{
        {"acos5-64_aodf", {"/entries/0/classAttributes/authId", "01"}},
        {"acos5-64_aodf", {"/entries/0/typeAttributes/path/path", "3F004100"}},
        {"acos5-64_dir", {"/entries/0/aidText", "ACOSPKCS-15v1.00"}},
        {"aosp-gp-seac_dodf", {"/entries/0/supported", false}},
        {"be-eid-virtual_prkdf", {"/entries/0/classAttributes/keyReference", 0x82}},
        {"be-eid-virtual_prkdf", {"/entries/1/classAttributes/usage", {"nonRepudiation"}}},
        {"es-accv-gyd-smartcafe_odf", {"/padding", 8}},
        {"sc-hsm-jpm_tokeninfo", {"/entries/0/serialNumber", json()}}, // absent, not empty
        {"uy-eid-gemalto_aodf", {"/entries/0/typeAttributes/lastPinChange", "20131011133817Z"}},
        {"uy-eid-gemalto_aodf",
         {"/entries/0/commonObjectAttributes/accessControlRules/0/condition", "always"}}};
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(P15_SAMPLES_DIR)) {
        if (entry.path().extension() != ".hex") {
            continue;
        }
        ++files;
        const std::string name = entry.path().stem().string();
        SCOPED_TRACE(name);
        const ToolResult human = runTool({"decode", entry.path().string()});
        if (name.find("starcos3x-esign") != std::string::npos) {
            EXPECT_TRUE(exited(human, 1, "is not a valid odf"));
            EXPECT_TRUE(human.out.empty());
            continue;
        }
        ASSERT_TRUE(exited(human, 0));
        EXPECT_TRUE(contains(human.out, "entries:"));
        const json decoded = runTool({"--json", "decode", entry.path().string()}).json();
        EXPECT_FALSE(decoded["entries"].empty());
        for (const json& each : decoded["entries"]) {
            EXPECT_TRUE(each.contains("type")) << each;
        }
        for (auto [at, end] = fields.equal_range(name); at != end; ++at) {
            EXPECT_EQ(decoded.value(json::json_pointer(at->second.first), json()),
                      at->second.second)
                << at->second.first;
        }
    }
    EXPECT_EQ(files, 20);
}

// The ACOS sample's AODF entry with its label TLV, 0C 04 "User", replaced
// by `label` of the same length.
std::string aodfWithLabel(const std::string& label) {
    const mw::ByteBuffer after = mw::fromHex("030206C03003040101A121301F030304CC000A010102"
                                             "01040201080201088001010401FF300604043F004100");
    return "\x30\x34\x30\x0A"s + label + std::string(after.begin(), after.end());
}

// Dumps in hex or binary, the kind told by the name or the content: card text
// becomes UTF-8 (T61String and non-UTF-8 read as Latin-1, NUL padding dropped),
// members no sample has are shown; hostile dumps fail in one line.
TEST(Decode, DumpsDecodeOrFailInOneLine) {
    const TemporaryDirectory directory;
    const std::string entry = aodfWithLabel("\x0C\x04User"s);
    const std::string label = "/entries/0/commonObjectAttributes/label";
    // Token information with the members no sample has: seInfo, recordInfo.
    const std::string tokenInfo = "\x30\x19\x02\x01\x00\x04\x02\x01\x02\x03\x01\x00\x30\x08\x30"
                                  "\x06\x02\x01\x01\x06\x01\x53\xA1\x03\x80\x01\x10"s;
    const std::tuple<const char*, std::string, std::string, json> decoded[] = {
        {"t61_aodf.bin", aodfWithLabel("\x14\x04"s + "Caf\xE9"), label, "Caf\xC3\xA9"},
        {"nul_aodf.bin", aodfWithLabel("\x0C\x04Us\0\0"s), label, "Us"},
        {"latin_aodf.bin", aodfWithLabel("\x0C\x04\xC3\xA9t\xE9"s), label,
         "\xC3\x83\xC2\xA9t\xC3\xA9"},
        {"dump.hex",
         "# Caf\xC3\xA9\n" + readFile(P15_SAMPLES_DIR "/sc-hsm-jpm_tokeninfo.hex"),
         "/entries/0/tokenflags",
         {"prnGeneration"}},
        {"padded_aodf.bin", entry + "\xFF\xFF\xFF", "/padding", 3},
        {"tokeninfo.bin", tokenInfo, "/entries/0/seInfo",
         json::parse(R"([{"se": 1, "owner": "2.3"}])")},
        {"tokeninfo.bin", tokenInfo, "/entries/0/recordInfo/oDFRecordLength", 16}};
    for (const auto& [name, content, pointer, value] : decoded) {
        SCOPED_TRACE(name);
        writeFile(directory.file(name), content);
        const ToolResult result = runTool({"decode", "--json", directory.file(name)});
        ASSERT_TRUE(exited(result, 0));
        EXPECT_EQ(result.json().value(json::json_pointer(pointer), json()), value);
    }
    const std::tuple<const char*, std::string, int, const char*> refused[] = {
        {"truncated_aodf.bin", entry.substr(0, entry.size() - 1), 1, "truncated"},
        {"overrun_aodf.bin", "\x30\x7F" + entry.substr(2), 1, "beyond"},
        {"junk_aodf.bin", entry + "\0\0\x30"s, 1, "after the padding at byte 56"},
        {"odd_aodf.hex", "# comment\n30 3", 1, "odd number of hex digits"},
        {"letters_aodf.hex", "30 zz", 1, "line 1: 'z' is not a hex digit"},
        {"nameless.bin", entry, 2, "--kind"}};
    for (const auto& [name, content, exitCode, says] : refused) {
        SCOPED_TRACE(name);
        writeFile(directory.file(name), content);
        const ToolResult refusal = runTool({"decode", directory.file(name)});
        EXPECT_TRUE(exited(refusal, exitCode, says));
        EXPECT_TRUE(refusal.out.empty());
    }
    EXPECT_TRUE(exited(runTool({"decode", "--kind", "xdf", directory.file("dump.hex")}), 2));
}

} // namespace
} // namespace p15tool::test
