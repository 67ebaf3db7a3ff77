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

// The ODFs the samples' notes call invalid: wrapped in an extra SEQUENCE,
// and an entry outside the five alternatives.
bool expectedInvalid(const std::string& name) {
    return name.find("starcos3x-esign") != std::string::npos;
}

TEST(Decode, EverySampleDecodesOrFailsInOneLine) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(samples)) {
        if (entry.path().extension() != ".hex") {
            continue;
        }
        ++files;
        const std::string name = entry.path().stem().string();
        SCOPED_TRACE(name);
        const ToolResult human = runTool({"decode", entry.path().string()});
        const ToolResult machine = runTool({"--json", "decode", entry.path().string()});
        if (expectedInvalid(name)) {
            EXPECT_EQ(human.exitCode, 1);
            EXPECT_TRUE(human.out.empty());
            EXPECT_EQ(std::count(human.err.begin(), human.err.end(), '\n'), 1) << human.err;
            EXPECT_NE(human.err.find("is not a valid odf"), std::string::npos) << human.err;
            continue;
        }
        ASSERT_EQ(human.exitCode, 0) << human.err;
        ASSERT_EQ(machine.exitCode, 0) << machine.err;
        EXPECT_NE(human.out.find("entries:"), std::string::npos);
        const json entries = machine.json()["entries"];
        EXPECT_FALSE(entries.empty());
        for (const json& decoded : entries) {
            EXPECT_TRUE(decoded.contains("type")) << decoded;
        }
    }
    EXPECT_EQ(files, 20);
}

struct Expectation {
    const char* file;
    const char* pointer;
    json value;
};

// What the samples' notes say each file holds.
TEST(Decode, SamplesCarryTheFieldsTheirNotesDescribe) {
    const Expectation expectations[] = {
        {"acos5-64_aodf", "/entries/0/commonObjectAttributes/label", "User"},
        {"acos5-64_aodf", "/entries/0/classAttributes/authId", "01"},
        {"acos5-64_aodf", "/entries/0/typeAttributes/pinReference", 1},
        {"acos5-64_aodf", "/entries/0/typeAttributes/padChar", "FF"},
        {"acos5-64_aodf", "/entries/0/typeAttributes/path/path", "3F004100"},
        {"acos5-64_dir", "/entries/0/aidText", "ACOSPKCS-15v1.00"},
        {"acos5-64_dir", "/entries/0/label", "eCert"},
        {"aosp-gp-seac_dodf", "/entries/0/type", "oidDO"},
        {"aosp-gp-seac_dodf", "/entries/0/supported", false},
        {"aosp-gp-seac_dodf", "/entries/0/classAttributes/applicationName", "GP SE Acc Ctl"},
        {"be-eid-virtual_odf", "/entries/2/path/path", "3F00DF005034"},
        {"be-eid-virtual_prkdf", "/entries/0/classAttributes/keyReference", 0x82},
        {"be-eid-virtual_prkdf", "/entries/1/classAttributes/usage", {"nonRepudiation"}},
        {"be-eid-virtual_prkdf", "/entries/1/commonObjectAttributes/userConsent", 1},
        {"be-eid-virtual_prkdf", "/entries/1/typeAttributes/modulusLength", 1024},
        {"es-accv-gyd-smartcafe_cdf", "/entries/0/typeAttributes/value/path", "3FFF430216E6"},
        {"es-accv-gyd-smartcafe_cdf", "/entries/0/typeAttributes/value/length", 0x084D},
        {"es-accv-gyd-smartcafe_odf", "/padding", 8},
        {"es-dnie-especimen_cdf", "/entries/1/commonObjectAttributes/label", "CertFirmaDigital"},
        {"es-dnie-especimen_cdf", "/entries/0/classAttributes/iDText",
         "A02034674163C2020160830144606"},
        {"es-dnie-especimen_prkdf", "/entries/0/classAttributes/native", true},
        {"es-fnmt-tui_prkdf", "/entries/0/commonObjectAttributes/flags", {"private"}},
        {"es-fnmt-tui_prkdf", "/entries/0/commonObjectAttributes/authId", "81"},
        {"sc-hsm-jpm_tokeninfo", "/entries/0/label", "JPM-HSM"},
        {"sc-hsm-jpm_tokeninfo", "/entries/0/tokenflags", {"prnGeneration"}},
        {"uy-eid-gemalto_aodf", "/entries/1/typeAttributes/pinReference", 0x81},
        {"uy-eid-gemalto_aodf", "/entries/0/typeAttributes/lastPinChange", "20131011133817Z"},
        {"uy-eid-gemalto_aodf", "/entries/0/commonObjectAttributes/accessControlRules/0/condition",
         "always"},
        {"uy-eid-gemalto_dodf", "/entries/1/commonObjectAttributes/label", "Default Key Container"},
        {"uy-eid-gemalto_dodf", "/entries/1/classAttributes/applicationName", "CSP"},
        {"uy-eid-gemalto_pukdf", "/entries/0/classAttributes/native", false},
        {"uy-eid-gemalto_pukdf", "/entries/0/typeAttributes/modulusLength", 2048},
    };
    for (const Expectation& expected : expectations) {
        SCOPED_TRACE(std::string(expected.file) + expected.pointer);
        const ToolResult result = runTool({"decode", "--json", sample(expected.file)});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.json().value(json::json_pointer(expected.pointer), json()),
                  expected.value);
    }
    const json tokenInfo = runTool({"decode", "--json", sample("sc-hsm-jpm_tokeninfo")}).json();
    EXPECT_FALSE(tokenInfo["entries"][0].contains("serialNumber"));
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

TEST(Decode, CardTextBecomesUtf8) {
    const TemporaryDirectory directory;
    const struct {
        std::string labelTlv;
        std::string shown;
    } cases[] = {
        {"\x14\x04"
         "Caf\xE9"s,
         "Caf\xC3\xA9"},                                         // T61String, Latin-1
        {"\x0C\x04Us\0\0"s, "Us"},                               // NUL padding dropped
        {"\x0C\x04\xC3\xA9t\xE9"s, "\xC3\x83\xC2\xA9t\xC3\xA9"}, // not UTF-8
    };
    for (const auto& each : cases) {
        const std::string path = directory.file("entry.bin");
        writeFile(path, aodfWithLabel(each.labelTlv));
        const ToolResult result = runTool({"decode", "--json", "--kind", "aodf", path});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.json()["entries"][0]["commonObjectAttributes"]["label"], each.shown);
    }
}

TEST(Decode, HostileDumpsFailInOneLine) {
    const TemporaryDirectory directory;
    const std::string entry = aodfWithLabel(std::string("\x0C\x04User", 6));
    const struct {
        const char* name;
        std::string content;
        int exitCode;
        const char* says;
    } cases[] = {
        {"truncated_aodf.bin", entry.substr(0, entry.size() - 1), 1, "truncated"},
        {"overrun_aodf.bin", "\x30\x7F" + entry.substr(2), 1, "beyond"},
        {"junk_aodf.bin", entry + std::string("\0\0\x30", 3), 1, "after the padding at byte 56"},
        {"odd_aodf.hex", "# comment\n30 3", 1, "odd number of hex digits"},
        {"letters_aodf.hex", "30 zz", 1, "line 1: 'z' is not a hex digit"},
        {"nameless.bin", entry, 2, "--kind"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        writeFile(directory.file(each.name), each.content);
        const ToolResult result = runTool({"decode", directory.file(each.name)});
        EXPECT_EQ(result.exitCode, each.exitCode);
        EXPECT_TRUE(result.out.empty());
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_NE(result.err.find(each.says), std::string::npos) << result.err;
    }
}

TEST(Decode, DumpFormats) {
    const TemporaryDirectory directory;
    // Hex with a UTF-8 comment, named so that only the content tells the kind.
    const std::string hexDump = directory.file("dump.hex");
    writeFile(hexDump, "# Caf\xC3\xA9\n" + readFile(sample("sc-hsm-jpm_tokeninfo")));
    const ToolResult tokenInfo = runTool({"decode", "--json", hexDump});
    ASSERT_EQ(tokenInfo.exitCode, 0) << tokenInfo.err;
    EXPECT_EQ(tokenInfo.json()["kind"], "tokeninfo");
    EXPECT_EQ(runTool({"decode", "--kind", "xdf", hexDump}).exitCode, 2);

    // Binary with FF padding.
    const std::string binary = directory.file("padded_aodf.bin");
    writeFile(binary, aodfWithLabel(std::string("\x0C\x04User", 6)) + "\xFF\xFF\xFF");
    const ToolResult padded = runTool({"decode", "--json", binary});
    ASSERT_EQ(padded.exitCode, 0) << padded.err;
    EXPECT_EQ(padded.json()["padding"], 3);
    EXPECT_EQ(padded.json()["entries"].size(), 1u);

    // Token information with the members no sample has: seInfo, recordInfo.
    const std::string tokenInfoFile = directory.file("tokeninfo.bin");
    writeFile(tokenInfoFile, std::string("\x30\x19\x02\x01\x00\x04\x02\x01\x02\x03\x01\x00"
                                         "\x30\x08\x30\x06\x02\x01\x01\x06\x01\x53"
                                         "\xA1\x03\x80\x01\x10",
                                         27));
    const ToolResult info = runTool({"decode", "--json", tokenInfoFile});
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_EQ(info.json()["entries"][0]["seInfo"], json::parse(R"([{"se": 1, "owner": "2.3"}])"));
    EXPECT_EQ(info.json()["entries"][0]["recordInfo"]["oDFRecordLength"], 16);
}

} // namespace
} // namespace p15tool::test
