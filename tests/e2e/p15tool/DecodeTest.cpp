// decode over the samples from real cards and over hostile dumps. (Each sample's entries byte for
// byte: SampleTest, Samples; here what decode shows.)
#include "ToolProcess.hpp"
#include "mw/Hex.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace p15tool::test {
namespace {

using nlohmann::json;
using namespace std::string_literals;

// The ACOS sample's AODF entry with its label TLV, 0C 04 "User", replaced by `label` of the same
// length.
std::string aodfWithLabel(const std::string& label) {
    const mw::ByteBuffer after = mw::fromHex("030206C03003040101A121301F030304CC000A010102"
                                             "01040201080201088001010401FF300604043F004100");
    return "\x30\x34\x30\x0A"s + label + std::string(after.begin(), after.end());
}

// Every sample decodes in text and in JSON but the ODFs their notes call invalid, which fail in one
// line. One row for each way a field is shown, of a sample or of a dump in hex or binary, its kind
// told by the name or the content: card text becomes UTF-8 (T61String and non-UTF-8 read as
// Latin-1, NUL padding dropped), members no sample has are shown; hostile dumps fail in one line
// and print nothing.
TEST(Decode, SamplesAndDumpsDecodeOrFailInOneLine) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(P15_SAMPLES_DIR)) {
        const std::string name = entry.path().stem().string();
        SCOPED_TRACE(name);
        files += entry.path().extension() == ".hex";
        if (entry.path().extension() != ".hex" ||
            name.find("starcos3x-esign") != std::string::npos) {
            continue;
        }
        EXPECT_TRUE(contains(runTool({"decode", entry.path().string()}).out, "entries:"));
        const json decoded = runTool({"--json", "decode", entry.path().string()}).json();
        for (const json& each : decoded["entries"]) {
            EXPECT_TRUE(each.contains("type")) << each;
        }
    }
    EXPECT_EQ(files, 20);

    const TemporaryDirectory directory;
    const std::string entry = aodfWithLabel("\x0C\x04User"s),
                      label = "/entries/0/commonObjectAttributes/label";
    // Token information with the members no sample has: seInfo, recordInfo.
    const std::string tokenInfo = "\x30\x19\x02\x01\x00\x04\x02\x01\x02\x03\x01\x00\x30\x08\x30"
                                  "\x06\x02\x01\x01\x06\x01\x53\xA1\x03\x80\x01\x10"s;
    const auto sample = [](const char* name) {
        return readFile(P15_SAMPLES_DIR "/"s + name + ".hex");
    };
    // clang-format off
    const std::tuple<std::string, std::string, std::string, json> decoded[] = {
        {"acos5-64_aodf.hex", sample("acos5-64_aodf"), "/entries/0/classAttributes/authId", "01"},
        {"acos5-64_aodf.hex", sample("acos5-64_aodf"), "/entries/0/typeAttributes/path/path", "3F004100"},
        {"acos5-64_dir.hex", sample("acos5-64_dir"), "/entries/0/aidText", "ACOSPKCS-15v1.00"},
        {"aosp-gp-seac_dodf.hex", sample("aosp-gp-seac_dodf"), "/entries/0/supported", false},
        {"be-eid-virtual_prkdf.hex", sample("be-eid-virtual_prkdf"), "/entries/0/classAttributes/keyReference", 0x82},
        {"be-eid-virtual_prkdf.hex", sample("be-eid-virtual_prkdf"), "/entries/1/classAttributes/usage", {"nonRepudiation"}},
        {"es-accv-gyd-smartcafe_odf.hex", sample("es-accv-gyd-smartcafe_odf"), "/padding", 8},
        {"sc-hsm-jpm_tokeninfo.hex", sample("sc-hsm-jpm_tokeninfo"), "/entries/0/serialNumber", json()}, // absent, not empty
        {"uy-eid-gemalto_aodf.hex", sample("uy-eid-gemalto_aodf"), "/entries/0/typeAttributes/lastPinChange", "20131011133817Z"},
        {"uy-eid-gemalto_aodf.hex", sample("uy-eid-gemalto_aodf"), "/entries/0/commonObjectAttributes/accessControlRules/0/condition", "always"},
        {"t61_aodf.bin", aodfWithLabel("\x14\x04"s + "Caf\xE9"), label, "Caf\xC3\xA9"},
        {"nul_aodf.bin", aodfWithLabel("\x0C\x04Us\0\0"s), label, "Us"},
        {"latin_aodf.bin", aodfWithLabel("\x0C\x04\xC3\xA9t\xE9"s), label, "\xC3\x83\xC2\xA9t\xC3\xA9"},
        {"dump.hex", "# Caf\xC3\xA9\n" + sample("sc-hsm-jpm_tokeninfo"), "/entries/0/tokenflags", {"prnGeneration"}},
        {"padded_aodf.bin", entry + "\xFF\xFF\xFF", "/padding", 3},
        {"tokeninfo.bin", tokenInfo, "/entries/0/seInfo", json::parse(R"([{"se": 1, "owner": "2.3"}])")},
        {"tokeninfo.bin", tokenInfo, "/entries/0/recordInfo/oDFRecordLength", 16}};
    const std::tuple<std::string, std::string, int, const char*> refused[] = {
        {"de-starcos3x-esign_cia-odf.hex", sample("de-starcos3x-esign_cia-odf"), 1, "is not a valid odf"},
        {"de-starcos3x-esign_pkcs15-odf.hex", sample("de-starcos3x-esign_pkcs15-odf"), 1, "is not a valid odf"},
        {"truncated_aodf.bin", entry.substr(0, entry.size() - 1), 1, "truncated"},
        {"overrun_aodf.bin", "\x30\x7F" + entry.substr(2), 1, "beyond"},
        {"junk_aodf.bin", entry + "\0\0\x30"s, 1, "after the padding at byte 56"},
        {"odd_aodf.hex", "# comment\n30 3", 1, "odd number of hex digits"},
        {"letters_aodf.hex", "30 zz", 1, "line 1: 'z' is not a hex digit"},
        {"nameless.bin", entry, 2, "--kind"}};
    // clang-format on
    for (const auto& [name, content, pointer, value] : decoded) {
        SCOPED_TRACE(name + pointer);
        writeFile(directory.file(name), content);
        const ToolResult result = runTool({"decode", "--json", directory.file(name)});
        ASSERT_TRUE(exited(result, 0));
        EXPECT_EQ(result.json().value(json::json_pointer(pointer), json()), value);
    }
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
