#include "tools/p15tool/KeyFile.hpp"

#include "tools/p15tool/Streams.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <cryptopp/base64.h>
#include <cryptopp/filters.h>
#include <cryptopp/nbtheory.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>

#include <string_view>

namespace p15tool {

namespace {

// Key files are a few kilobytes; anything much larger is not one.
constexpr std::size_t maxKeyFileSize = 64 * 1024;
constexpr std::size_t exponentSize = 3;

// The file's text is the key itself: it is read into a buffer that wipes
// itself, never through a stream's buffer.
mw::ByteBuffer readKeyFile(const std::string& path) {
    mw::ByteBuffer content = readInput(path, maxKeyFileSize);
    if (content.empty()) {
        throw ToolError(ExitCode::failure,
                        path + " is empty; give a PKCS#8 or PKCS#1 RSA private key");
    }
    return content;
}

mw::ByteBuffer drain(CryptoPP::BufferedTransformation& from) {
    mw::ByteBuffer bytes(static_cast<std::size_t>(from.MaxRetrievable()));
    from.Get(bytes.data(), bytes.size());
    return bytes;
}

// One PEM block: its label, whether its body is encrypted, its DER.
struct PemBlock {
    std::string label;
    bool encrypted = false;
    mw::ByteBuffer der;
};

// The PEM blocks of `text`, in file order; none when it is not PEM.
std::vector<PemBlock> pemBlocks(std::string_view text) {
    static constexpr std::string_view begin = "-----BEGIN ", dashes = "-----";
    std::vector<PemBlock> blocks;
    for (std::size_t at = text.find(begin); at != std::string_view::npos;
         at = text.find(begin, at)) {
        const std::size_t labelStart = at + begin.size();
        const std::size_t labelEnd = text.find(dashes, labelStart);
        if (labelEnd == std::string_view::npos) {
            break;
        }
        PemBlock block;
        block.label = std::string(text.substr(labelStart, labelEnd - labelStart));
        const std::size_t bodyStart = labelEnd + dashes.size();
        const std::size_t bodyEnd = text.find("-----END " + block.label + "-----", bodyStart);
        if (bodyEnd == std::string_view::npos) {
            throw ToolError(ExitCode::failure, "the PEM block \"" + block.label +
                                                   "\" has no END line; the file is cut short");
        }
        const std::string_view body = text.substr(bodyStart, bodyEnd - bodyStart);
        block.encrypted = body.find("Proc-Type:") != std::string_view::npos;
        CryptoPP::Base64Decoder decoder;
        decoder.Put(reinterpret_cast<const CryptoPP::byte*>(body.data()), body.size());
        decoder.MessageEnd();
        block.der = drain(decoder);
        blocks.push_back(std::move(block));
        at = bodyEnd;
    }
    return blocks;
}

enum class Form { pkcs8, pkcs1, either };

// The DER of the private key in `content` and the form its label names.
std::pair<mw::ByteBuffer, Form> privateKeyDer(mw::ByteBuffer content, const std::string& path) {
    const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    std::vector<PemBlock> blocks = pemBlocks(text);
    if (blocks.empty()) {
        return {std::move(content), Form::either};
    }
    std::string labels;
    for (PemBlock& block : blocks) {
        if (block.label == "ENCRYPTED PRIVATE KEY" || block.encrypted) {
            throw ToolError(ExitCode::failure,
                            path +
                                " holds an encrypted key; decrypt it first, e.g. with: "
                                "openssl pkey -in " +
                                path + " -out key.pem");
        }
        if (block.label == "PRIVATE KEY") {
            return {std::move(block.der), Form::pkcs8};
        }
        if (block.label == "RSA PRIVATE KEY") {
            return {std::move(block.der), Form::pkcs1};
        }
        labels += (labels.empty() ? "" : ", ") + block.label;
    }
    throw ToolError(ExitCode::failure,
                    path + " holds no private key (PEM blocks: " + labels +
                        "); give a PKCS#8 \"PRIVATE KEY\" or PKCS#1 \"RSA PRIVATE KEY\"");
}

// Components that agree with each other but stand on a composite "prime"
// make a key the card could store and never use.
void refuseComposite(const CryptoPP::Integer& prime, const char* name, const std::string& path) {
    CryptoPP::AutoSeededRandomPool random;
    if (!CryptoPP::VerifyPrime(random, prime, 2)) {
        throw ToolError(ExitCode::failure, "the key in " + path + " is not a valid RSA key: " +
                                               name + " is not prime; nothing was imported");
    }
}

bool decodes(CryptoPP::RSA::PrivateKey& key, const mw::ByteBuffer& der, Form form) {
    try {
        CryptoPP::ArraySource source(der.data(), der.size(), true);
        if (form == Form::pkcs8) {
            key.BERDecode(source);
        } else {
            key.BERDecodePrivateKey(source, false, der.size());
        }
        return source.MaxRetrievable() == 0;
    } catch (const CryptoPP::Exception&) {
        return false;
    }
}

CryptoPP::RSA::PrivateKey decodePrivateKey(const mw::ByteBuffer& der, Form form,
                                           const std::string& path) {
    CryptoPP::RSA::PrivateKey key;
    const bool decoded = form == Form::either
                             ? decodes(key, der, Form::pkcs8) || decodes(key, der, Form::pkcs1)
                             : decodes(key, der, form);
    if (!decoded) {
        throw ToolError(ExitCode::failure,
                        path + " is not an RSA private key in PKCS#8 or PKCS#1 form (DER or "
                               "PEM); the card takes RSA keys only");
    }
    if (!key.Validate(CryptoPP::NullRNG(), 1)) {
        throw ToolError(ExitCode::failure, "the RSA key in " + path +
                                               " is inconsistent (its components do not "
                                               "belong together); nothing was imported");
    }
    refuseComposite(key.GetPrime1(), "p", path);
    refuseComposite(key.GetPrime2(), "q", path);
    return key;
}

mw::ByteBuffer bytesOf(const CryptoPP::Integer& value, std::size_t size) {
    mw::ByteBuffer bytes(size);
    value.Encode(bytes.data(), size);
    return bytes;
}

} // namespace

RsaKeyMaterial readPrivateKeyFile(const std::string& path) {
    return privateKeyMaterial(readKeyFile(path), path);
}

RsaKeyMaterial privateKeyMaterial(mw::ByteBuffer content, const std::string& path) {
    const auto [der, form] = privateKeyDer(std::move(content), path);
    const CryptoPP::RSA::PrivateKey key = decodePrivateKey(der, form, path);
    RsaKeyMaterial material;
    material.bits = key.GetModulus().BitCount();
    if (material.bits != 1024 && material.bits != 1536 && material.bits != 2048) {
        throw ToolError(ExitCode::failure, "the key in " + path + " has " +
                                               std::to_string(material.bits) +
                                               " bits; the card takes 1024, 1536 or 2048");
    }
    if (key.GetPublicExponent().MinEncodedSize() > exponentSize) {
        throw ToolError(ExitCode::failure, "the public exponent of the key in " + path +
                                               " is longer than 3 bytes; the card cannot hold it");
    }
    const CryptoPP::Integer& p = key.GetPrime1();
    const CryptoPP::Integer& q = key.GetPrime2();
    const std::size_t half = material.bits / 16;
    if (p.MinEncodedSize() > half || q.MinEncodedSize() > half) {
        throw ToolError(ExitCode::failure, "the primes of the key in " + path +
                                               " differ in size; the card takes keys whose "
                                               "primes are half the modulus each");
    }
    material.modulus = bytesOf(key.GetModulus(), material.bits / 8);
    material.exponent = bytesOf(key.GetPublicExponent(), exponentSize);
    material.p = bytesOf(p, half);
    material.q = bytesOf(q, half);
    material.dp = bytesOf(key.GetModPrime1PrivateExponent(), half);
    material.dq = bytesOf(key.GetModPrime2PrivateExponent(), half);
    material.pInv = bytesOf(p.InverseMod(q), half);
    material.qInv = bytesOf(key.GetMultiplicativeInverseOfPrime2ModPrime1(), half);
    return material;
}

mw::ByteBuffer derFromPem(const mw::ByteBuffer& content, const std::string& label,
                          const std::string& path) {
    const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    std::vector<PemBlock> blocks = pemBlocks(text);
    if (blocks.empty()) {
        return content;
    }
    for (PemBlock& block : blocks) {
        if (block.label == label) {
            return std::move(block.der);
        }
    }
    throw ToolError(ExitCode::failure, path + " holds no PEM block \"" + label + "\"");
}

std::string pem(const mw::ByteBuffer& der, const std::string& label) {
    std::string body;
    CryptoPP::Base64Encoder encoder(new CryptoPP::StringSink(body), true, 64);
    encoder.Put(der.data(), der.size());
    encoder.MessageEnd();
    return "-----BEGIN " + label + "-----\n" + body + "-----END " + label + "-----\n";
}

namespace {

void putSshString(mw::ByteBuffer& out, const unsigned char* data, std::size_t size) {
    const unsigned char length[] = {
        static_cast<unsigned char>(size >> 24), static_cast<unsigned char>(size >> 16),
        static_cast<unsigned char>(size >> 8), static_cast<unsigned char>(size)};
    out.append(length, sizeof length);
    out.append(data, size);
}

// An SSH mpint: positive, so a leading zero when the top bit is set.
void putSshInteger(mw::ByteBuffer& out, const mw::ByteBuffer& value) {
    const CryptoPP::Integer number(value.data(), value.size());
    const std::size_t size = number.MinEncodedSize(CryptoPP::Integer::SIGNED);
    const mw::ByteBuffer bytes = bytesOf(number, size);
    putSshString(out, bytes.data(), bytes.size());
}

} // namespace

std::string openSshLine(const mw::ByteBuffer& modulus, const mw::ByteBuffer& exponent,
                        const std::string& comment) {
    static const std::string type = "ssh-rsa";
    mw::ByteBuffer blob;
    putSshString(blob, reinterpret_cast<const unsigned char*>(type.data()), type.size());
    putSshInteger(blob, exponent);
    putSshInteger(blob, modulus);
    std::string encoded;
    CryptoPP::Base64Encoder encoder(new CryptoPP::StringSink(encoded), false);
    encoder.Put(blob.data(), blob.size());
    encoder.MessageEnd();
    return type + " " + encoded + (comment.empty() ? "" : " " + comment) + "\n";
}

} // namespace p15tool
