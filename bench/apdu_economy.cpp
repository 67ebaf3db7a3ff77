// The APDU-economy report: what each host operation costs at the card (APDUs
// and bytes each way) beside the least the card profile allows, as card time
// under a stated latency model and as measured with the virtual card's
// latency model on; the plugin's CPU per signature; and how a cold listing
// grows with the number of objects, up to directory files of FFFF bytes.
//
// Usage: bench_apdu_economy <performance.md> <report.json>
// The tables replace what stands between the report's markers in the
// Markdown file; the JSON file is written whole.
#include "BenchCard.hpp"
#include "ScaleCard.hpp"

#include "app/SecurityConditions.hpp"
#include "app/crypto/ICipher.hpp"
#include "app/crypto/IKeyPairGenerator.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/ICertificate.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "vcard/Personalise.hpp"

#include <algorithm>
#include <boost/exception/diagnostic_information.hpp>
#include <fstream>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

using namespace bench;
using app::object::IKey;
using app::object::IPin;
using app::object::IPrivateRSAKey;
using app::object::IPublicRSAKey;

const std::string rsaEncryption = "1.2.840.113549.1.1.1";
const std::string sha256WithRsa = "1.2.840.113549.1.1.11";
const std::string pssSha256 = "1.2.840.113549.1.1.10/2.16.840.1.101.3.4.2.1";
const std::string oaepSha256 = "1.2.840.113549.1.1.7/2.16.840.1.101.3.4.2.1";

// The stated model: a contact card at 115,200 bit/s with 10 ms per command.
constexpr double modelMsPerApdu = 10.0;
constexpr double modelMsPerByte = 0.087;

double modelMs(std::uint64_t apdus, std::uint64_t bytes) {
    return modelMsPerApdu * static_cast<double>(apdus) +
           modelMsPerByte * static_cast<double>(bytes);
}

struct Row {
    std::string operation;
    Cost cost;
    std::uint64_t minimumApdus;
};

// One card through the whole sequence of operations, each row measured on
// the state the rows before it left: opened, listed, PIN verified, a key
// pair generated, used, relabelled, deleted, and finally the card wiped.
class Sequence {
public:
    Sequence()
        : card_(vcard::personalise()) {
        card_.virtualCard->instrumentation().setLatency(latencyPerApdu, latencyPerByte);
    }

    // The plugin's CPU time (the card's taken out) of the cheapest of a few
    // signatures, measured with the latency model off after the sign row.
    double signPluginCpuMs() const { return signPluginCpuMs_; }
    static constexpr int signRounds = 50;

    std::vector<Row> run() {
        std::vector<Row> rows;
        for (Row (Sequence::*row)() :
             {&Sequence::open, &Sequence::listCold, &Sequence::listWarm, &Sequence::verifyPin,
              &Sequence::pinStatus, &Sequence::generateKeyPair, &Sequence::sign, &Sequence::signPss,
              &Sequence::decipher, &Sequence::decipherOaep, &Sequence::changeLabel,
              &Sequence::writeCertificate, &Sequence::readCertificate, &Sequence::deleteKey,
              &Sequence::wipe}) {
            rows.push_back((this->*row)());
        }
        return rows;
    }

private:
    void listAll() const {
        const auto& repository = *card_.repository;
        const card::IChannel& channel = *card_.channel;
        repository.getAuthObjects(channel);
        repository.getPrivateKeys(channel);
        repository.getPublicKeys(channel);
        repository.getCertificates(channel);
        repository.getDataObjects(channel);
    }
    const IPin& userPin() const {
        return dynamic_cast<const IPin&>(*card_.repository->getAuthObjects(*card_.channel).at(0));
    }

    // SELECT of the application by name, then of the card-status file.
    Row open() {
        return {"open (getApplications)", card_.measure([&] { card_.open(); }), 2};
    }
    // EF(ODF) and the five directory files: one SELECT and one READ BINARY
    // each, as all hold their entries within one answer.
    Row listCold() {
        return {"list all objects, cold", card_.measure([&] { listAll(); }), 12};
    }
    Row listWarm() {
        return {"list all objects, warm", card_.measure([&] { listAll(); }), 0};
    }
    Row verifyPin() {
        const mw::ByteBuffer pin{'1', '2', '3', '4', '5', '6'};
        return {"verify PIN", card_.measure([&] { userPin().authenticate(*card_.channel, pin); }),
                1};
    }
    // VERIFY without data.
    Row pinStatus() {
        return {"PIN status", card_.measure([&] { userPin().getPinInfo(*card_.channel); }), 1};
    }
    // SELECT of the PrKDF and of the PuKDF, each with two UPDATE BINARY (a new
    // entry's first byte goes last, so that a torn write leaves none half
    // written), then CREATE FILE of both key files and GENERATE.
    Row generateKeyPair() {
        const app::AccessControlRules userPinRules{app::AccessControlRule(
            app::AccessControlRule::Read | app::AccessControlRule::Update |
                app::AccessControlRule::Execute,
            boost::make_shared<app::AuthIdSecurityCondition>(std::vector<std::uint8_t>{0x01}))};
        privateKey_ = boost::dynamic_pointer_cast<IPrivateRSAKey>(
            card_.factory->createPrivateKey(app::object::IPrivateKey::RsaPrivateKey, userPinRules));
        publicKey_ = boost::dynamic_pointer_cast<IPublicRSAKey>(
            card_.factory->createPublicKey(app::object::IPublicKey::RsaPublicKey, {}));
        privateKey_->setUsage(IKey::Sign | IKey::Decrypt);
        publicKey_->setUsage(IKey::Verify | IKey::Encrypt);
        for (IKey* key :
             {static_cast<IKey*>(privateKey_.get()), static_cast<IKey*>(publicKey_.get())}) {
            key->setLabel("bench key");
            key->setKeyId(mw::ByteBuffer{0x42});
        }
        privateKey_->setModulusLength(2048);
        publicKey_->setModulusLength(2048);
        const auto generator = card_.application->getKeyPairGenerator(rsaEncryption);
        return {"generate a 2048-bit key pair with its entries", card_.measure([&] {
                    generator->generate(*card_.channel, privateKey_, publicKey_);
                }),
                9};
    }
    // MANAGE SECURITY ENVIRONMENT, then PSO: COMPUTE DIGITAL SIGNATURE.
    Row sign() {
        const auto signOnce = signing(sha256WithRsa, mw::ByteBuffer(1000));
        Row row{"sign (2048, SHA-256)", card_.measure(signOnce), 2};
        auto& instrumentation = card_.virtualCard->instrumentation();
        instrumentation.clearLatency();
        for (int round = 0; round < signRounds; ++round) {
            const double cpuMs = card_.measure(signOnce).pluginCpuMs();
            signPluginCpuMs_ = round == 0 ? cpuMs : std::min(signPluginCpuMs_, cpuMs);
        }
        instrumentation.setLatency(latencyPerApdu, latencyPerByte);
        return row;
    }
    // The same with the card's RSA-PSS, of the hash the caller made.
    Row signPss() {
        return {"sign (2048, RSA-PSS SHA-256)",
                card_.measure(signing(pssSha256, mw::ByteBuffer(32))), 2};
    }
    std::function<void()> signing(const std::string& oid, mw::ByteBuffer input) {
        return [this, engine = card_.application->getSignature(oid), input] {
            engine->init(*card_.channel, app::crypto::ISignature::Sign, *privateKey_);
            engine->sign(*card_.channel, input);
        };
    }
    // MANAGE SECURITY ENVIRONMENT, then PSO: DECIPHER of 1 + 256 bytes in
    // one extended APDU.
    Row decipher() { return deciphering("decipher (2048)", rsaEncryption); }
    Row decipherOaep() { return deciphering("decipher (2048, RSAES-OAEP SHA-256)", oaepSha256); }
    Row deciphering(const char* name, const std::string& oid) {
        const auto engine = card_.application->getCipher(oid);
        engine->init(*card_.channel, app::crypto::ICipher::Encipher, *publicKey_);
        const mw::ByteBuffer cryptogram = engine->encipher(*card_.channel, mw::ByteBuffer(32));
        return {name, card_.measure([&] {
                    engine->init(*card_.channel, app::crypto::ICipher::Decipher, *privateKey_);
                    engine->decipher(*card_.channel, cryptogram);
                }),
                2};
    }
    // UPDATE BINARY of the changed bytes of the entry; the PuKDF was the
    // last file selected, so the PrKDF needs its SELECT.
    Row changeLabel() {
        privateKey_->setLabel("bench key, renamed");
        return {"change a label", card_.measure([&] {
                    card_.repository->writeCardObject(*card_.channel, *privateKey_);
                }),
                2};
    }
    // SELECT of the CDF and two UPDATE BINARY of the new entry (its body, then
    // its first byte); SELECT of the DF for values, CREATE FILE and one
    // UPDATE BINARY of the 2 KB value.
    Row writeCertificate() {
        const auto certificate =
            card_.factory->createCertificate(app::object::ICertificate::X509Certificate, {});
        certificate->setLabel("bench certificate");
        mw::ByteBuffer value(2048); // a DER SEQUENCE of 2044 content bytes
        value.data()[0] = 0x30;
        value.data()[1] = 0x82;
        value.data()[2] = 0x07;
        value.data()[3] = 0xFC;
        certificate->setValue(value);
        return {"write a 2 KB certificate", card_.measure([&] {
                    card_.repository->writeCardObject(*card_.channel, *certificate);
                }),
                6};
    }
    // Read cold by a newly opened application that listed it: SELECT of the
    // value file and one READ BINARY.
    Row readCertificate() {
        card_.open();
        const auto certificate = card_.repository->getCertificates(*card_.channel).at(0);
        privateKey_ = boost::dynamic_pointer_cast<IPrivateRSAKey>(
            card_.repository->getPrivateKeys(*card_.channel).at(0));
        publicKey_ = boost::dynamic_pointer_cast<IPublicRSAKey>(
            card_.repository->getPublicKeys(*card_.channel).at(0));
        return {"read the certificate", card_.measure([&] {
                    card_.repository->readCardObject(*card_.channel, *certificate);
                }),
                2};
    }
    // DELETE FILE of both key files, then SELECT and UPDATE BINARY of the
    // PrKDF and of the PuKDF.
    Row deleteKey() {
        return {"delete a key pair", card_.measure([&] {
                    card_.repository->deleteCardObject(*card_.channel, *privateKey_);
                    card_.repository->deleteCardObject(*card_.channel, *publicKey_);
                }),
                6};
    }
    // The certificate is left: SELECT and READ BINARY of the DODF, the one
    // directory file not listed since the application was opened; SELECT of
    // the DF for values and DELETE FILE of the value file; SELECT and UPDATE
    // BINARY of the CDF.
    Row wipe() {
        return {"wipe (a certificate left)",
                card_.measure([&] { card_.application->wipe(*card_.channel); }), 6};
    }

    static constexpr std::chrono::milliseconds latencyPerApdu{10};
    static constexpr std::chrono::microseconds latencyPerByte{87};

    BenchCard card_;
    double signPluginCpuMs_ = 0;
    boost::shared_ptr<IPrivateRSAKey> privateKey_;
    boost::shared_ptr<IPublicRSAKey> publicKey_;
};

std::string fixed(double value, int decimals = 1) {
    std::ostringstream out;
    out.setf(std::ios::fixed);
    out.precision(decimals);
    out << value;
    return out.str();
}

std::string economyTable(const std::vector<Row>& rows) {
    std::ostringstream out;
    out << "| operation | APDUs | minimum | bytes to card | bytes from card | model ms | "
           "model ms at minimum APDUs | measured ms | of which host |\n"
        << "|---|---:|---:|---:|---:|---:|---:|---:|---:|\n";
    for (const Row& row : rows) {
        const Cost& c = row.cost;
        const std::uint64_t bytes = c.bytesIn + c.bytesOut;
        out << "| " << row.operation << " | " << c.apdus << " | " << row.minimumApdus << " | "
            << c.bytesIn << " | " << c.bytesOut << " | " << fixed(modelMs(c.apdus, bytes)) << " | "
            << fixed(modelMs(row.minimumApdus, bytes)) << " | " << fixed(c.wallMs) << " | "
            << fixed(c.hostMs(), 2) << " |\n";
    }
    return out.str();
}

std::string scaleTable(const std::vector<ScalePoint>& points) {
    std::ostringstream out;
    out << "| objects | directory bytes | largest file | APDUs | bytes to card | bytes from card | "
           "model ms | plugin CPU ms | CPU µs per object | peak heap KiB |\n"
        << "|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n";
    for (const ScalePoint& p : points) {
        const Cost& c = p.cost;
        out << "| " << p.objects << " | " << p.directoryBytes << " | " << p.largestFile << " | "
            << c.apdus << " | " << c.bytesIn << " | " << c.bytesOut << " | "
            << fixed(modelMs(c.apdus, c.bytesIn + c.bytesOut)) << " | " << fixed(p.pluginCpuMs, 2)
            << " | " << fixed(1000 * p.pluginCpuMs / static_cast<double>(p.objects), 1) << " | "
            << fixed(static_cast<double>(p.peakHeapBytes) / 1024, 0) << " |\n";
    }
    return out.str();
}

// The measured figures besides the rows and the scale points.
struct Figures {
    double signPluginCpuMs = 0;
};

constexpr std::size_t targetObjects = 500;

// The targets, each with the figure that meets or misses it.
std::string targetsTable(const std::vector<Row>& rows, const std::vector<ScalePoint>& points,
                         const Figures& figures) {
    std::uint64_t extra = 0;
    for (const Row& row : rows) {
        extra += row.cost.apdus > row.minimumApdus ? row.cost.apdus - row.minimumApdus : 0;
    }
    const auto target = std::find_if(points.begin(), points.end(), [](const ScalePoint& p) {
        return p.objects == targetObjects;
    });
    std::ostringstream out;
    out << "| target | figure |\n|---|---|\n"
        << "| reads, signing and writes use the minimal APDU sequence | " << extra
        << " APDUs above the minimum over all operations above |\n"
        << "| plugin CPU per sign under 0.2 ms (excluding RSA on the card) | "
        << fixed(figures.signPluginCpuMs, 3) << " ms (init and sign of 1000 bytes, SHA-256, the "
        << "cheapest of " << Sequence::signRounds << ") |\n"
        << "| cold listing of " << targetObjects << " objects under 20 ms of plugin CPU | "
        << fixed(target->pluginCpuMs, 2) << " ms |\n"
        << "| growth linear in the number of objects | plugin CPU per object";
    const char* separator = " ";
    for (const ScalePoint& p : points) {
        if (p.objects >= 100) {
            out << separator << fixed(1000 * p.pluginCpuMs / static_cast<double>(p.objects), 2)
                << " µs at " << p.objects;
            separator = ", ";
        }
    }
    out << " objects |\n";
    return out.str();
}

nlohmann::json costJson(const Cost& c) {
    return {{"apdus", c.apdus},
            {"bytesToCard", c.bytesIn},
            {"bytesFromCard", c.bytesOut},
            {"modelMs", modelMs(c.apdus, c.bytesIn + c.bytesOut)},
            {"measuredMs", c.wallMs},
            {"hostMs", c.hostMs()}};
}

nlohmann::json reportJson(const std::vector<Row>& rows, const std::vector<ScalePoint>& points,
                          const Figures& figures) {
    nlohmann::json report;
    report["latencyModel"] = {{"msPerApdu", modelMsPerApdu}, {"msPerByte", modelMsPerByte}};
    report["signPluginCpuMs"] = figures.signPluginCpuMs;
    for (const Row& row : rows) {
        nlohmann::json entry = costJson(row.cost);
        entry["operation"] = row.operation;
        entry["minimumApdus"] = row.minimumApdus;
        report["operations"].push_back(entry);
    }
    for (const ScalePoint& p : points) {
        nlohmann::json entry = costJson(p.cost);
        entry["objects"] = p.objects;
        entry["directoryBytes"] = p.directoryBytes;
        entry["largestFileBytes"] = p.largestFile;
        entry["pluginCpuMs"] = p.pluginCpuMs;
        entry["peakHeapBytes"] = p.peakHeapBytes;
        report["coldListing"].push_back(entry);
    }
    return report;
}

// Replaces the text between "<!-- name:begin -->" and "<!-- name:end -->".
void replaceBetweenMarkers(std::string& document, const std::string& name,
                           const std::string& text) {
    const std::string begin = "<!-- " + name + ":begin -->\n";
    const std::string end = "<!-- " + name + ":end -->";
    const std::size_t from = document.find(begin);
    const std::size_t to = document.find(end);
    if (from == std::string::npos || to == std::string::npos || to < from) {
        throw std::runtime_error("no markers " + name + " in the report");
    }
    document.replace(from + begin.size(), to - from - begin.size(), text);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " <performance.md> <report.json>\n";
        return 2;
    }
    try {
        Sequence sequence;
        const std::vector<Row> rows = sequence.run();
        const Figures figures{sequence.signPluginCpuMs()};
        const std::vector<ScalePoint> points =
            measureScale({1, 10, 100, targetObjects, objectsFillingDirectories()});

        std::ifstream in(argv[1]);
        std::string document((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
        replaceBetweenMarkers(document, "apdu-economy", economyTable(rows));
        replaceBetweenMarkers(document, "cold-listing-scale", scaleTable(points));
        replaceBetweenMarkers(document, "targets", targetsTable(rows, points, figures));
        std::ofstream(argv[1]) << document;
        std::ofstream(argv[2]) << reportJson(rows, points, figures).dump(2) << "\n";
        std::cout << economyTable(rows) << "\n"
                  << scaleTable(points) << "\n"
                  << targetsTable(rows, points, figures);
    } catch (const std::exception& e) {
        std::cerr << "apdu economy: " << boost::diagnostic_information(e) << "\n";
        return 1;
    }
    return 0;
}
