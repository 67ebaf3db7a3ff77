#include "tools/p15tool/Keys.hpp"

#include "app/IApplication.hpp"
#include "app/SecurityConditions.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "host/Channel.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/CardEntry.hpp"
#include "tools/p15tool/FlagNames.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/Text.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <CLI/CLI.hpp>
#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>
#include <cryptopp/sha.h>

#include <algorithm>

namespace p15tool {

namespace {

using app::object::IKey;
using app::object::IPrivateRSAKey;
using app::object::IPublicRSAKey;
using app::object::KeyOperation;

// Common object flags.
constexpr std::uint8_t privateFlag = 0x02;
constexpr std::uint8_t modifiableFlag = 0x01;
// An identifier is an OCTET STRING of at most 255 bytes.
constexpr std::size_t maxIdSize = 255;

std::string idText(const mw::ByteBuffer& id) {
    return mw::toHex(id);
}

// What a private key may do, in words; the public-key operations are the
// public key's business.
struct PrivateOperation {
    KeyOperation operation;
    const char* words;
};
constexpr PrivateOperation privateOperations[] = {
    {KeyOperation::sign, "sign"},          {KeyOperation::signRecover, "sign with recovery"},
    {KeyOperation::decrypt, "decrypt"},    {KeyOperation::unwrap, "unwrap keys"},
    {KeyOperation::derive, "derive keys"},
};

const char* wordsFor(KeyOperation operation) {
    for (const PrivateOperation& each : privateOperations) {
        if (each.operation == operation) {
            return each.words;
        }
    }
    return "do that";
}

// "may only sign and decrypt", or "may not be used" for a usage that allows
// no private-key operation.
std::string allowedWords(std::uint16_t usage) {
    std::vector<std::string> allowed;
    for (const PrivateOperation& each : privateOperations) {
        if (app::object::usageAllows(usage, each.operation)) {
            allowed.emplace_back(each.words);
        }
    }
    if (allowed.empty()) {
        return "may not be used";
    }
    std::string text = "may only " + allowed.front();
    for (std::size_t i = 1; i < allowed.size(); ++i) {
        text += (i + 1 == allowed.size() ? " and " : ", ") + allowed[i];
    }
    return text;
}

std::string usageWords(std::uint16_t usage) {
    std::string text;
    for (const auto& name : flagNames(usage, 10, keyUsages)) {
        text += (text.empty() ? "" : ", ") + name.get<std::string>();
    }
    return text.empty() ? "none" : text;
}

template <class Key, class List> std::vector<boost::shared_ptr<Key>> rsaKeys(const List& keys) {
    std::vector<boost::shared_ptr<Key>> found;
    for (const auto& key : keys) {
        if (auto rsa = boost::dynamic_pointer_cast<Key>(key)) {
            found.push_back(rsa);
        }
    }
    return found;
}

} // namespace

void addKeyChoice(CLI::App& command, KeyChoice& choice) {
    addObjectChoice(command, choice, "key");
}

KeyPair chooseKeyPair(const Session& session, const KeyChoice& choice) {
    const auto& repository = session.repository();
    const auto keys = rsaKeys<IPrivateRSAKey>(repository.getPrivateKeys(session.channel()));
    KeyPair pair{chooseObject(keys, choice, std::mem_fn(&IKey::getKeyId), "RSA key"), nullptr};
    for (const auto& key : rsaKeys<IPublicRSAKey>(repository.getPublicKeys(session.channel()))) {
        if (key->getKeyId() == pair.privateKey->getKeyId()) {
            pair.publicKey = key;
            break;
        }
    }
    return pair;
}

void requireUsage(const KeyPair& pair, KeyOperation operation) {
    const std::uint16_t usage = pair.privateKey->getUsage();
    if (!app::object::usageAllows(usage, operation)) {
        throw ToolError(ExitCode::card, keyName(*pair.privateKey) + " " + allowedWords(usage) +
                                            " (usage: " + usageWords(usage) + "); it cannot " +
                                            wordsFor(operation));
    }
}

app::object::ICardObjectFactory& factoryOf(const Session& session) {
    auto* factory = dynamic_cast<app::object::ICardObjectFactory*>(&session.application());
    if (!factory) {
        throw ToolError(ExitCode::card, "the plugin makes no new objects for the card's "
                                        "application; use a plugin that writes keys");
    }
    return *factory;
}

app::AccessControlRules pinRules(const mw::ByteBuffer& authId, std::uint16_t modes) {
    return {app::AccessControlRule(modes,
                                   boost::make_shared<app::AuthIdSecurityCondition>(
                                       std::vector<std::uint8_t>(authId.begin(), authId.end())))};
}

KeyPair newKeyPair(const Session& session, const std::string& label, const mw::ByteBuffer& id,
                   const mw::ByteBuffer& authId, unsigned bits) {
    const app::AccessControlRules userPin =
        pinRules(authId, app::AccessControlRule::Update | app::AccessControlRule::Execute);
    app::object::ICardObjectFactory& factory = factoryOf(session);
    KeyPair pair{boost::dynamic_pointer_cast<IPrivateRSAKey>(
                     factory.createPrivateKey(app::object::IPrivateKey::RsaPrivateKey, userPin)),
                 boost::dynamic_pointer_cast<IPublicRSAKey>(
                     factory.createPublicKey(app::object::IPublicKey::RsaPublicKey, {}))};
    pair.privateKey->setUsage(IKey::Sign | IKey::Decrypt);
    pair.privateKey->setFlags(privateFlag | modifiableFlag);
    pair.privateKey->setModulusLength(static_cast<std::uint16_t>(bits));
    pair.publicKey->setUsage(IKey::Verify | IKey::Encrypt);
    pair.publicKey->setFlags(modifiableFlag);
    pair.publicKey->setModulusLength(static_cast<std::uint16_t>(bits));
    for (IKey* key :
         {static_cast<IKey*>(pair.privateKey.get()), static_cast<IKey*>(pair.publicKey.get())}) {
        key->setLabel(label);
        key->setKeyId(id);
    }
    return pair;
}

mw::ByteBuffer modulusKeyId(const mw::ByteBuffer& modulus) {
    mw::ByteBuffer digest(CryptoPP::SHA1::DIGESTSIZE);
    CryptoPP::SHA1().CalculateDigest(digest.data(), modulus.data(), modulus.size());
    return digest;
}

mw::ByteBuffer idFromHex(const std::string& text) {
    try {
        mw::ByteBuffer id = mw::fromHex(text);
        if (!id.empty() && id.size() <= maxIdSize) {
            return id;
        }
    } catch (const std::exception&) {
    }
    throw ToolError(ExitCode::usage,
                    "--id takes 1 to 255 bytes in hex digits, not \"" + text + "\"");
}

void refuseTakenId(const Session& session, const mw::ByteBuffer& id) {
    for (const auto& key : session.repository().getPrivateKeys(session.channel())) {
        if (key->getKeyId() == id) {
            throw ToolError(ExitCode::failure, "the card holds a key with id " + mw::toHex(id) +
                                                   " already (" + keyName(*key) +
                                                   "); choose another with --id");
        }
    }
}

const IPublicRSAKey& readPublicKey(const Session& session, const KeyPair& pair) {
    if (!pair.publicKey) {
        throw ToolError(ExitCode::notFound, "the card lists no public key for " +
                                                keyName(*pair.privateKey) +
                                                "; its public part cannot be read");
    }
    session.repository().readCardObject(session.channel(), *pair.publicKey);
    return *pair.publicKey;
}

enrolment::RsaPublicKey publicKeyOf(const IPublicRSAKey& key) {
    return {der::Bytes(key.getModulus().begin(), key.getModulus().end()),
            der::Bytes(key.getPublicExponent().begin(), key.getPublicExponent().end())};
}

mw::ByteBuffer signOnCard(const Session& session, const app::object::IPrivateKey& key,
                          const std::string& oid, const mw::ByteBuffer& data) {
    const auto engine = session.application().getSignature(oid);
    engine->init(session.channel(), app::crypto::ISignature::Sign, key);
    return engine->sign(session.channel(), data);
}

std::string keyName(const IKey& key) {
    if (key.getLabel() && !displayText(*key.getLabel()).empty()) {
        return "\"" + displayText(*key.getLabel()) + "\"";
    }
    return "key " + idText(key.getKeyId());
}

bool keyStaysOnCard(const IKey& key, bool privateKey) {
    const card::service::KeyRef ref = key.getKeyReference();
    const unsigned char kid = ref.keyReference & 0x7F;
    if ((ref.keyReference & 0x80) == 0 || kid < 0x01 || kid > 0x12) {
        return true;
    }
    const mw::ByteBuffer own{static_cast<unsigned char>(privateKey ? 0x0E : 0x0F), kid};
    const mw::ByteBuffer& path = ref.fileId;
    if (path.size() <= 2) {
        return !path.empty() && path != own;
    }
    const bool fromMf = path.get(0) == 0x3F && path.get(1) == 0x00 && path.size() >= 6;
    const bool fromDf = path.get(0) == 0x3F && path.get(1) == 0xFF && path.size() == 4;
    return !((fromMf || fromDf) && path.get(path.size() - 2, 2) == own);
}

Json keyJson(const IKey& key, const PinList& pins) {
    Json out = cardObjectJson(key, pins);
    const mw::ByteBuffer& id = key.getKeyId();
    out["id"] = idText(id);
    if (isPrintableAscii(Bytes(id.begin(), id.end()))) {
        out["idText"] = std::string(id.begin(), id.end());
    }
    out["usage"] = flagNames(key.getUsage(), 10, keyUsages);
    if (key.getAccessFlags()) {
        out["accessFlags"] = flagNames(*key.getAccessFlags(), 5, keyAccessFlags);
    }
    if (const auto* rsa = dynamic_cast<const IPrivateRSAKey*>(&key)) {
        out["modulusLength"] = rsa->getModulusLength();
    } else if (const auto* rsa = dynamic_cast<const IPublicRSAKey*>(&key)) {
        out["modulusLength"] = rsa->getModulusLength();
    }
    // The plugin's reference is 0 for a key without one; the entry tells a
    // reference of 0 from none.
    if (const auto attributes = entryKeyAttributes(key)) {
        if (attributes->keyReference) {
            out["keyReference"] = *attributes->keyReference;
        }
    } else if (const unsigned reference = key.getKeyReference().keyReference; reference != 0) {
        out["keyReference"] = reference;
    }
    return out;
}

} // namespace p15tool
