// sign, verify, encrypt, decrypt and random: the plugin's engines over files
// or stdin and stdout. Private-key work runs on the card, public-key work in
// the plugin's software.
#include "app/IApplication.hpp"
#include "app/crypto/ICipher.hpp"
#include "app/crypto/IRandom.hpp"
#include "app/crypto/ISignature.hpp"
#include "host/Channel.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Digest.hpp"
#include "tools/p15tool/Keys.hpp"
#include "tools/p15tool/Login.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Schemes.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/Streams.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <limits>
#include <map>

namespace p15tool {

namespace {

using app::crypto::ICipher;
using app::crypto::ISignature;

const char* const rsaEncryption = "1.2.840.113549.1.1.1";
// Messages up to this size go to the plugin whole (a card that hashes gets
// them); longer ones are hashed here as they are read and the card signs
// their DigestInfo, so a file of any size takes 64 KiB of memory.
constexpr std::size_t wholeMessageSize = 64 * 1024;
// A cryptogram or signature is one RSA block.
constexpr std::size_t maxBlockSize = 4096;
// Bytes of a PKCS#1 v1.5 block that are padding rather than message.
constexpr std::size_t pkcs1Overhead = 11;
constexpr std::size_t maxRandomCount = 65536;

// The signature algorithms by the names users know.
const std::map<std::string, std::string> signatureAlgorithms{
    {"sha1", "1.2.840.113549.1.1.5"},    {"sha224", "1.2.840.113549.1.1.14"},
    {"sha256", "1.2.840.113549.1.1.11"}, {"sha384", "1.2.840.113549.1.1.12"},
    {"sha512", "1.2.840.113549.1.1.13"}, {"md5", "1.2.840.113549.1.1.4"},
    {"ripemd160", "1.3.36.3.3.1.2"},     {"raw", rsaEncryption},
};

struct CryptoOptions {
    KeyChoice choice;
    PinSource pin{"user PIN", "pin", {}, {}};
    std::string algorithm = "sha256";
    std::string in = "-";
    std::string out = "-";
    std::string signature;
    std::size_t count = 0;
    bool hex = false;
    bool pss = false;
    bool oaep = false;
};

// The key's modulus in bytes, which bounds what one RSA block carries.
std::size_t blockSize(const app::object::IPrivateRSAKey& key) {
    return (key.getModulusLength() + 7u) / 8u;
}

// "a, b or c"
std::string alternatives(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    }
    return text;
}

// What the plugin signs or verifies, under which algorithm.
struct SignedMessage {
    std::string algorithm;
    mw::ByteBuffer bytes;
    std::string hash; // as --alg names it; of raw RSA-PSS, the hash its length says
    bool pss = false;
    std::string name() const { return pss ? rsaPss.name + (" with " + hash) : hash; }
};

// A short message (or a raw one) as it is, under --alg; a long one as its
// DigestInfo for raw RSA.
SignedMessage pkcs1Message(const std::string& path, const std::string& algorithm) {
    InputFile input(path, std::numeric_limits<std::uint64_t>::max());
    mw::ByteBuffer head = readSome(input, wholeMessageSize + 1);
    if (algorithm == "raw" || head.size() <= wholeMessageSize) {
        return {signatureAlgorithms.at(algorithm), std::move(head), algorithm};
    }
    return {rsaEncryption, digestInfo(algorithm, head, input), algorithm};
}

// RSA-PSS signs a hash: the message's, made here as it is read, or with
// --alg raw the input itself, whose length says which hash it is.
SignedMessage pssMessage(const std::string& path, const std::string& algorithm) {
    if (algorithm != "raw") {
        InputFile input(path, std::numeric_limits<std::uint64_t>::max());
        return {algorithmOf(rsaPss, algorithm), digest(algorithm, {}, input), algorithm, true};
    }
    mw::ByteBuffer hash = readInput(path, maxBlockSize);
    std::vector<std::string> lengths;
    for (const std::string& name : rsaPss.hashes) {
        if (hashLength(name) == hash.size()) {
            return {algorithmOf(rsaPss, name), std::move(hash), name, true};
        }
        lengths.push_back(std::to_string(hashLength(name)));
    }
    throw ToolError(ExitCode::failure, "--pss --alg raw takes a hash of " + alternatives(lengths) +
                                           " bytes (" + alternatives(rsaPss.hashes) +
                                           "); the input has " + std::to_string(hash.size()));
}

// Read before the card is held: hashing a large file keeps no one else from
// the card.
SignedMessage signedMessage(const CryptoOptions& options) {
    if (!options.pss) {
        return pkcs1Message(options.in, options.algorithm);
    }
    const std::vector<std::string>& taken = rsaPss.hashes;
    if (options.algorithm != "raw" &&
        std::find(taken.begin(), taken.end(), options.algorithm) == taken.end()) {
        std::vector<std::string> names = taken;
        names.emplace_back("raw");
        throw ToolError(ExitCode::usage,
                        "--pss takes --alg " + alternatives(names) + ", not " + options.algorithm);
    }
    return pssMessage(options.in, options.algorithm);
}

// A ToolError unless one RSA block of `key` holds what is signed: a raw
// DigestInfo with its PKCS#1 v1.5 padding, or an RSA-PSS encoding, which
// puts two hashes and two bytes in the modulus less one bit.
void requireRoom(const SignedMessage& message, const app::object::IPrivateRSAKey& key) {
    const std::size_t bits = key.getModulusLength();
    if (message.pss && bits < 16 * message.bytes.size() + 10) {
        throw ToolError(ExitCode::failure, message.name() + " needs a key of at least " +
                                               std::to_string(16 * message.bytes.size() + 10) +
                                               " bits; " + keyName(key) + " has " +
                                               std::to_string(bits) +
                                               "; choose a shorter hash with --alg");
    }
    if (!message.pss && message.hash == "raw" &&
        message.bytes.size() + pkcs1Overhead > blockSize(key)) {
        throw ToolError(ExitCode::failure,
                        "raw signing takes at most " +
                            std::to_string(blockSize(key) - pkcs1Overhead) +
                            " bytes (a DigestInfo) with this key; choose a hash with --alg");
    }
}

// The plugin's engine for `message`. Asking for it costs no PIN; a card that
// does not perform RSA-PSS is refused here, before any PIN is asked for.
boost::shared_ptr<ISignature> signatureEngine(const Session& session,
                                              const SignedMessage& message) {
    if (message.pss) {
        requirePerformed(session.application(), rsaPss, message.hash);
    }
    return session.application().getSignature(message.algorithm);
}

void sign(const GlobalOptions& global, const CryptoOptions& options) {
    const SignedMessage message = signedMessage(options);
    const Session session(global);
    const KeyPair pair = chooseKeyPair(session, options.choice);
    requireUsage(pair, app::object::KeyOperation::sign);
    requireRoom(message, *pair.privateKey);
    const auto engine = signatureEngine(session, message);
    verifyUserPin(session, options.pin);
    engine->init(session.channel(), ISignature::Sign, *pair.privateKey);
    writeOutput(options.out, engine->sign(session.channel(), message.bytes), true);
}

void verify(const GlobalOptions& global, const CryptoOptions& options) {
    const mw::ByteBuffer signature = readInput(options.signature, maxBlockSize);
    const SignedMessage message = signedMessage(options);
    const Session session(global);
    const KeyPair pair = chooseKeyPair(session, options.choice);
    const auto engine = signatureEngine(session, message);
    engine->init(session.channel(), ISignature::Verify, readPublicKey(session, pair));
    const bool verified = engine->verify(session.channel(), message.bytes, signature);
    printResult(std::cout, Json{{"verified", verified}}, global.json);
    if (!verified) {
        throw ToolError(ExitCode::failure,
                        "the signature in " + options.signature + " does not verify with " +
                            keyName(*pair.privateKey) + " (" + message.name() + ")");
    }
}

// The cipher of the command: RSAES-OAEP with --oaep, else PKCS#1 v1.5. A
// card that does not perform RSAES-OAEP is refused before any PIN is asked
// for.
boost::shared_ptr<ICipher> cipherEngine(const Session& session, const CryptoOptions& options) {
    if (!options.oaep) {
        return session.application().getCipher(rsaEncryption);
    }
    requirePerformed(session.application(), rsaOaep, options.algorithm);
    return session.application().getCipher(algorithmOf(rsaOaep, options.algorithm));
}

// A ToolError unless one block of `key` carries `size` bytes under the
// command's scheme: RSAES-OAEP puts two hashes and two bytes beside them.
void requireCipherRoom(const CryptoOptions& options, const app::object::IPrivateRSAKey& key,
                       std::size_t size) {
    const std::size_t block = blockSize(key);
    const std::size_t padding =
        options.oaep ? 2 * hashLength(options.algorithm) + 2 : pkcs1Overhead;
    const std::size_t room = block > padding ? block - padding : 0;
    if (size > room || block < padding) {
        const std::string scheme =
            options.oaep ? rsaOaep.name + (" with " + options.algorithm) : "RSA PKCS#1 v1.5";
        throw ToolError(ExitCode::failure,
                        scheme + " enciphers at most " + std::to_string(room) +
                            " bytes with this key; the input has " + std::to_string(size) +
                            " (encipher a symmetric key rather than the data itself)");
    }
}

void encrypt(const GlobalOptions& global, const CryptoOptions& options) {
    const mw::ByteBuffer data = readInput(options.in, maxBlockSize);
    const Session session(global);
    const KeyPair pair = chooseKeyPair(session, options.choice);
    const auto cipher = cipherEngine(session, options);
    requireCipherRoom(options, *pair.privateKey, data.size());
    cipher->init(session.channel(), ICipher::Encipher, readPublicKey(session, pair));
    writeOutput(options.out, cipher->encipher(session.channel(), data), true);
}

void decrypt(const GlobalOptions& global, const CryptoOptions& options) {
    const mw::ByteBuffer cryptogram = readInput(options.in, maxBlockSize);
    const Session session(global);
    const KeyPair pair = chooseKeyPair(session, options.choice);
    requireUsage(pair, app::object::KeyOperation::decrypt);
    if (cryptogram.size() != blockSize(*pair.privateKey)) {
        throw ToolError(ExitCode::failure, "a cryptogram for this key has " +
                                               std::to_string(blockSize(*pair.privateKey)) +
                                               " bytes; the input has " +
                                               std::to_string(cryptogram.size()));
    }
    const auto cipher = cipherEngine(session, options);
    verifyUserPin(session, options.pin);
    cipher->init(session.channel(), ICipher::Decipher, *pair.privateKey);
    writeOutput(options.out, cipher->decipher(session.channel(), cryptogram), true,
                Exposure::secret);
}

void random(const GlobalOptions& global, const CryptoOptions& options) {
    const Session session(global);
    const mw::ByteBuffer bytes =
        session.application().getRandom()->generate(session.channel(), options.count);
    if (options.hex || global.json) {
        printResult(std::cout, Json{{"random", mw::toHex(bytes)}}, global.json);
        return;
    }
    writeOutput(options.out, bytes, true);
}

void addStreams(CLI::App& command, CryptoOptions& options, const char* in, const char* out) {
    command.add_option("--in", options.in, in)->type_name("FILE");
    command.add_option("--out", options.out, out)->type_name("FILE");
}

// --alg and --pss. `raw` says what the input is with --alg raw: for sign,
// what is signed; for verify, what was signed.
void addSignatureScheme(CLI::App& command, CryptoOptions& options, const char* raw) {
    std::vector<std::string> names;
    for (const auto& [name, oid] : signatureAlgorithms) {
        names.push_back(name);
    }
    command
        .add_option("--alg", options.algorithm,
                    std::string("hash of the signature (default sha256); ") + raw)
        ->check(CLI::IsMember(names));
    command.add_flag("--pss", options.pss,
                     "RSA-PSS in place of PKCS#1 v1.5: sha256, sha384 or sha512, a salt as long");
}

// --oaep and the hash it takes.
void addCipherScheme(CLI::App& command, CryptoOptions& options) {
    CLI::Option* oaep = command.add_flag(
        "--oaep", options.oaep, "RSAES-OAEP in place of PKCS#1 v1.5 (MGF1 of the hash, no label)");
    command.add_option("--alg", options.algorithm, "hash of RSAES-OAEP: sha1 or sha256 (default)")
        ->check(CLI::IsMember(rsaOaep.hashes))
        ->needs(oaep);
}

} // namespace

void addCryptoCommands(CLI::App& program, const GlobalOptions& global) {
    auto options = std::make_shared<CryptoOptions>();

    CLI::App* signCommand = program.add_subcommand("sign", "sign data with a key on the card");
    addKeyChoice(*signCommand, options->choice);
    addSignatureScheme(*signCommand, *options,
                       "raw signs the input as it is: a DigestInfo, with --pss a hash");
    addStreams(*signCommand, *options, "the data (default: stdin)",
               "the signature (default: stdout)");
    addPinOptions(*signCommand, options->pin);
    signCommand->callback([&global, options] { sign(global, *options); });

    CLI::App* verifyCommand =
        program.add_subcommand("verify", "check a signature with a public key on the card");
    addKeyChoice(*verifyCommand, options->choice);
    addSignatureScheme(*verifyCommand, *options,
                       "raw: the input is what was signed, a DigestInfo, with --pss a hash");
    verifyCommand->add_option("--signature", options->signature, "the signature")
        ->type_name("FILE")
        ->required();
    verifyCommand->add_option("--in", options->in, "the data (default: stdin)")->type_name("FILE");
    verifyCommand->callback([&global, options] { verify(global, *options); });

    CLI::App* encryptCommand = program.add_subcommand(
        "encrypt", "encipher a short secret for a key on the card (RSA PKCS#1 v1.5 or RSAES-OAEP)");
    addKeyChoice(*encryptCommand, options->choice);
    addCipherScheme(*encryptCommand, *options);
    addStreams(*encryptCommand, *options, "the secret (default: stdin)",
               "the cryptogram (default: stdout)");
    encryptCommand->callback([&global, options] { encrypt(global, *options); });

    CLI::App* decryptCommand =
        program.add_subcommand("decrypt", "decipher a cryptogram with a key on the card");
    addKeyChoice(*decryptCommand, options->choice);
    addCipherScheme(*decryptCommand, *options);
    addStreams(*decryptCommand, *options, "the cryptogram (default: stdin)",
               "the secret (default: stdout)");
    addPinOptions(*decryptCommand, options->pin);
    decryptCommand->callback([&global, options] { decrypt(global, *options); });

    CLI::App* randomCommand = program.add_subcommand("random", "N random bytes from the card");
    randomCommand->add_option("N", options->count, "how many bytes")
        ->required()
        ->check(CLI::Range(std::size_t{1}, maxRandomCount));
    randomCommand->add_option("--out", options->out, "write to FILE instead of stdout")
        ->type_name("FILE");
    randomCommand->add_flag("--hex", options->hex, "print hex digits");
    randomCommand->callback([&global, options] { random(global, *options); });
}

} // namespace p15tool
