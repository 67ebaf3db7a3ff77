// decode over the samples from real cards and over hostile dumps.
#include "ToolProcess.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace p15tool::test {
namespace {

using nlohmann::json;
using namespace std::string_literals;

const std::string samples = P15_SAMPLES_DIR;

std::string sample(const std::string& name) {
    return samples + "/" + name + ".hex";
}

// Every sample decodes to typed entries, in text and in JSON, but the ODFs
// their notes call invalid (wrapped in an extra SEQUENCE, an entry outside
// the five alternatives), which fail in one line.
TEST(Decode, EverySampleDecodesOrFailsInOneLine) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(samples)) {
        if (entry.path().extension() != ".hex") {
            continue;
        }
        ++files;
        SCOPED_TRACE(entry.path().stem().string());
        const ToolResult human = runTool({"decode", entry.path().string()});
        if (entry.path().stem().string().find("starcos3x-esign") != std::string::npos) {
            EXPECT_TRUE(exited(human, 1, "is not a valid odf"));
            EXPECT_TRUE(human.out.empty());
            EXPECT_EQ(std::count(human.err.begin(), human.err.end(), '\n'), 1) << human.err;
            continue;
        }
        ASSERT_TRUE(exited(human, 0));
        EXPECT_TRUE(contains(human.out, "entries:"));
        const json entries = runTool({"--json", "decode", entry.path().string()}).json()["entries"];
        EXPECT_FALSE(entries.empty());
        for (const json& decoded : entries) {
            EXPECT_TRUE(decoded.contains("type")) << decoded;
        }
    }
    EXPECT_EQ(files, 20);
}

// What the samples' notes say each file holds, one row for each way a
// field is shown: text, hex, numbers, flags, paths, times, conditions, a
// kind the tool does not interpret.
TEST(Decode, SamplesCarryTheFieldsTheirNotesDescribe) {
    const struct {
        const char* file;
        const char* pointer;
        json value;
    } expectations[] = {
        {"acos5-64_aodf", "/entries/0/classAttributes/authId", "01"},
        {"acos5-64_aodf", "/entries/0/typeAttributes/padChar", "FF"},
        {"acos5-64_aodf", "/entries/0/typeAttributes/path/path", "3F004100"},
        {"acos5-64_dir", "/entries/0/aidText", "ACOSPKCS-15v1.00"},
        {"aosp-gp-seac_dodf", "/entries/0/supported", false},
        {"be-eid-virtual_prkdf", "/entries/0/classAttributes/keyReference", 0x82},
        {"be-eid-virtual_prkdf", "/entries/1/classAttributes/usage", {"nonRepudiation"}},
        {"es-accv-gyd-smartcafe_cdf", "/entries/0/typeAttributes/value/length", 0x084D},
        {"es-accv-gyd-smartcafe_odf", "/padding", 8},
        {"es-dnie-especimen_cdf", "/entries/0/classAttributes/iDText",
         "A02034674163C2020160830144606"},
        {"es-dnie-especimen_prkdf", "/entries/0/classAttributes/native", true},
        {"sc-hsm-jpm_tokeninfo", "/entries/0/tokenflags", {"prnGeneration"}},
        {"uy-eid-gemalto_aodf", "/entries/0/typeAttributes/lastPinChange", "20131011133817Z"},
        {"uy-eid-gemalto_aodf", "/entries/0/commonObjectAttributes/accessControlRules/0/condition",
         "always"},
        {"uy-eid-gemalto_pukdf", "/entries/0/typeAttributes/modulusLength", 2048},
    };
    for (const auto& expected : expectations) {
        SCOPED_TRACE(std::string(expected.file) + expected.pointer);
        const ToolResult result = runTool({"decode", "--json", sample(expected.file)});
        ASSERT_TRUE(exited(result, 0));
        EXPECT_EQ(result.json().value(json::json_pointer(expected.pointer), json()),
                  expected.value);
    }
    const json tokenInfo = runTool({"decode", "--json", sample("sc-hsm-jpm_tokeninfo")}).json();
    EXPECT_FALSE(tokenInfo["entries"][0].contains("serialNumber")) << "absent, not empty";
}

// The ACOS AODF entry with its label replaced; `label` is the whole TLV and
// keeps the length of 0C 04 "User".
std::string aodfWithLabel(const std::string& label) {
    const std::string before("\x30\x34\x30\x0A", 4);
    const std::string after("\x03\x02\x06\xC0\x30\x03\x04\x01\x01\xA1\x21\x30\x1F\x03\x03\x04\xCC"
                            "\x00\x0A\x01\x01\x02\x01\x04\x02\x01\x08\x02\x01\x08\x80\x01\x01\x04"
                            "\x01\xFF\x30\x06\x04\x04\x3F\x00\x41\x00",
                            44);
    return before + label + after;
}

// Dumps in hex (comments allowed) or binary, the kind told by the name or
// the content: card text becomes UTF-8 (T61String and anything not UTF-8
// read as Latin-1, NUL padding dropped), padding is counted, members no
// sample has are shown; hostile dumps fail in one line naming the fault.
TEST(Decode, DumpsDecodeOrFailInOneLine) {
    const TemporaryDirectory directory;
    const std::string entry = aodfWithLabel("\x0C\x04User"s);
    const std::string label = "/entries/0/commonObjectAttributes/label";
    // Token information with the members no sample has: seInfo, recordInfo.
    const std::string tokenInfo = "\x30\x19\x02\x01\x00\x04\x02\x01\x02\x03\x01\x00\x30\x08\x30"
                                  "\x06\x02\x01\x01\x06\x01\x53\xA1\x03\x80\x01\x10"s;
    const struct {
        const char* name;
        std::string content;
        int exitCode;
        std::string pointerOrSays;
        json value;
    } cases[] = {
        {"t61_aodf.bin",
         aodfWithLabel("\x14\x04"
                       "Caf\xE9"s),
         0, label, "Caf\xC3\xA9"},
        {"nul_aodf.bin", aodfWithLabel("\x0C\x04Us\0\0"s), 0, label, "Us"},
        {"latin_aodf.bin", aodfWithLabel("\x0C\x04\xC3\xA9t\xE9"s), 0, label,
         "\xC3\x83\xC2\xA9t\xC3\xA9"},
        {"dump.hex", "# Caf\xC3\xA9\n" + readFile(sample("sc-hsm-jpm_tokeninfo")), 0, "/kind",
         "tokeninfo"},
        {"padded_aodf.bin", entry + "\xFF\xFF\xFF", 0, "/padding", 3},
        {"tokeninfo.bin", tokenInfo, 0, "/entries/0/seInfo",
         json::parse(R"([{"se": 1, "owner": "2.3"}])")},
        {"tokeninfo.bin", tokenInfo, 0, "/entries/0/recordInfo/oDFRecordLength", 16},
        {"truncated_aodf.bin", entry.substr(0, entry.size() - 1), 1, "truncated", {}},
        {"overrun_aodf.bin", "\x30\x7F" + entry.substr(2), 1, "beyond", {}},
        {"junk_aodf.bin", entry + "\0\0\x30"s, 1, "after the padding at byte 56", {}},
        {"odd_aodf.hex", "# comment\n30 3", 1, "odd number of hex digits", {}},
        {"letters_aodf.hex", "30 zz", 1, "line 1: 'z' is not a hex digit", {}},
        {"nameless.bin", entry, 2, "--kind", {}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const std::string path = directory.file(each.name);
        writeFile(path, each.content);
        if (each.exitCode == 0) {
            const ToolResult result = runTool({"decode", "--json", path});
            ASSERT_TRUE(exited(result, 0));
            EXPECT_EQ(result.json().value(json::json_pointer(each.pointerOrSays), json()),
                      each.value);
            continue;
        }
        const ToolResult result = runTool({"decode", path});
        EXPECT_TRUE(exited(result, each.exitCode, each.pointerOrSays));
        EXPECT_TRUE(result.out.empty());
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    EXPECT_TRUE(exited(runTool({"decode", "--kind", "xdf", directory.file("dump.hex")}), 2));
}

} // namespace
} // namespace p15tool::test
