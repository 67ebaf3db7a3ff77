// Every writing operation, cut off at each of its commands in turn: the card
// loses power before the command takes effect or, for UPDATE BINARY, after
// half of its data is written. Opened afresh, the card still lists all its
// objects; every item the operation was not writing (directory entry, value
// or key file, PIN) is byte-identical to before; what it was writing is old,
// new, or (a value file) damaged — and a directory file never holds an entry
// that is neither old nor new.
#include "AppOnCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/crypto/IKeyPairGenerator.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "card/CardException.hpp"
#include "card/service/IFileAccessService.hpp"
#include "host/iso7816/Tlv.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/exception/get_error_info.hpp>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>

namespace {

using Application = app::pkcs15::P15Application;
using Snapshot = std::map<std::string, std::string>;
using Fault = vcard::Instrumentation::Fault;

// The directory files of the personalised card: ODF, PrKDF, PuKDF, CDF,
// DODF, AODF. Their entries are compared one by one, wherever they moved.
const std::set<std::uint16_t> directoryFiles{0x5031, 0x4400, 0x4401, 0x4404, 0x4407, 0x4408};

std::string hex(const vcard::Bytes& bytes) {
    return mw::toHex(mw::ByteBuffer(bytes));
}

void addEntries(Snapshot& snapshot, const std::string& path, const vcard::Bytes& content) {
    const mw::ByteBuffer data(content);
    std::size_t used = 0;
    try {
        host::iso7816::TlvReader reader(data);
        while (!reader.atEnd() && content[used] != 0x00 && content[used] != 0xFF) {
            const host::iso7816::Tlv entry = reader.next();
            snapshot["entry " + path + " " +
                     hex(vcard::Bytes(content.begin() + used, content.begin() + entry.end()))] = "";
            used = entry.end();
        }
    } catch (const card::CardException&) {
        snapshot["garbage " + path] = hex(vcard::Bytes(content.begin() + used, content.end()));
    }
}

void addFiles(Snapshot& snapshot, const vcard::CardFile& file, const std::string& parent) {
    const std::string path = parent + hex({static_cast<std::uint8_t>(file.fid >> 8),
                                           static_cast<std::uint8_t>(file.fid)});
    if (file.isKeyFile()) {
        snapshot["key " + path] = std::to_string(file.keyBits) + (file.key ? " with key" : "");
    } else if (!file.isDf() && directoryFiles.count(file.fid)) {
        addEntries(snapshot, path, file.content);
    } else if (!file.isDf()) {
        snapshot["file " + path] = hex(file.content);
    }
    for (const auto& child : file.children) {
        addFiles(snapshot, *child, path + "/");
    }
}

// Everything a write must keep or may change, one item per key.
Snapshot snapshot(const vcard::VirtualCard& card) {
    Snapshot items;
    addFiles(items, card.state().files.mf(), "");
    for (const auto& [reference, pin] : card.state().pins.pins()) {
        items["pin " + std::to_string(reference)] = hex(pin.value);
        items["tries " + std::to_string(reference)] = std::to_string(pin.triesLeft);
    }
    return items;
}

// Lists every kind of object and reads each public key, as a host opening the
// card does; the error of each kind that fails, by kind.
std::map<std::string, std::string> enumerate(const support::AppOnCard& card) {
    std::map<std::string, std::string> errors;
    boost::shared_ptr<Application> application;
    const card::IChannel& channel = *card.channel;
    const auto attempt = [&](const char* kind, const std::function<void()>& list) {
        try {
            list();
        } catch (const app::InvalidDataException& e) {
            const char* const* text = boost::get_error_info<app::ErrorText>(e);
            errors[kind] = std::string("invalid data: ") + (text ? *text : e.what());
        } catch (const std::exception& e) {
            errors[kind] = e.what();
        }
    };
    attempt("application", [&] { application = card.reopen(); });
    if (!application) {
        return errors;
    }
    attempt("PINs", [&] { application->getAuthObjects(channel); });
    attempt("public keys", [&] {
        for (const auto& key : application->getPublicKeys(channel)) {
            application->readCardObject(channel, *key);
        }
    });
    attempt("private keys", [&] {
        // A listed key whose key file is gone is neither the old object nor the new one.
        for (const auto& key : application->getPrivateKeys(channel)) {
            const auto rsa = boost::dynamic_pointer_cast<app::object::IPrivateRSAKey>(key);
            application->getFileAccessService()->select(channel, rsa->getKeyValueReference());
        }
    });
    attempt("certificates", [&] { application->getCertificates(channel); });
    attempt("data objects", [&] { application->getDataObjects(channel); });
    return errors;
}

// What a cut may leave of the object being written, and how the host then
// learns of it when it lists that kind of object. An entry rewritten in place
// that changes its length cannot be written without a moment of torn bytes:
// its directory file may no longer decode. Key generation writes its entries
// before it creates and fills the key files, in an order that is fixed: its
// new entries may name key files not there.
struct Damage {
    const char* file;   // the directory file that may be torn, or nullptr
    const char* kinds;  // the objects whose listing may fail
    const char* report; // how it fails
};

struct Operation {
    const char* name;
    std::optional<Damage> mayDamage;
    // Runs before the fault is armed: logins and the like.
    std::function<void(const support::AppOnCard&, const Application&)> prepare;
    std::function<void(const support::AppOnCard&, Application&)> write;
};

boost::shared_ptr<app::object::IPin> userPinOf(const support::AppOnCard& card,
                                               const Application& application) {
    return boost::dynamic_pointer_cast<app::object::IPin>(
        application.getAuthObjects(*card.channel).at(0));
}

// A 1024-bit pair generated on the card, with both entries.
void generateKeyPair(const Application& application, const card::IChannel& channel) {
    const auto privateKey =
        boost::dynamic_pointer_cast<app::object::IPrivateRSAKey>(application.createPrivateKey(
            app::object::IPrivateKey::RsaPrivateKey, support::userPinRules()));
    const auto publicKey = boost::dynamic_pointer_cast<app::object::IPublicRSAKey>(
        application.createPublicKey(app::object::IPublicKey::RsaPublicKey, {}));
    for (app::object::IKey* key : {static_cast<app::object::IKey*>(privateKey.get()),
                                   static_cast<app::object::IKey*>(publicKey.get())}) {
        key->setLabel("Generated");
        key->setKeyId(support::ascii("Gene"));
    }
    privateKey->setUsage(app::object::IKey::Sign);
    publicKey->setUsage(app::object::IKey::Verify);
    privateKey->setModulusLength(1024);
    publicKey->setModulusLength(1024);
    application.getKeyPairGenerator("1.2.840.113549.1.1.1")
        ->generate(channel, privateKey, publicKey);
}

void verify(const support::AppOnCard& card, const Application& application) {
    card.verifyUserPin(application);
}

const Operation operations[] = {
    {"change PIN", std::nullopt, nullptr,
     [](const support::AppOnCard& card, Application& application) {
         userPinOf(card, application)
             ->change(*card.channel, support::ascii(support::userPin), support::ascii("654321"));
     }},
    {"unblock PIN", std::nullopt,
     [](const support::AppOnCard& card, const Application& application) {
         try {
             userPinOf(card, application)->authenticate(*card.channel, support::ascii("000000"));
         } catch (const card::CardException&) {
         }
     },
     [](const support::AppOnCard& card, Application& application) {
         userPinOf(card, application)->unblock(*card.channel, support::ascii(support::puk));
     }},
    {"relabel key", Damage{"3F00/5015/4400", "private keys", "invalid data: "}, verify,
     [](const support::AppOnCard& card, Application& application) {
         const auto key = application.getPrivateKeys(*card.channel).at(0);
         key->setLabel("A label longer than the one before");
         application.writeCardObject(*card.channel, *key);
     }},
    {"import key pair", std::nullopt, verify,
     [](const support::AppOnCard& card, Application& application) {
         support::importKeyPair(application, *card.channel, "Second key");
     }},
    {"generate key pair", Damage{nullptr, "private keys, public keys", "card exception"}, verify,
     [](const support::AppOnCard& card, Application& application) {
         generateKeyPair(application, *card.channel);
     }},
    {"delete key", std::nullopt, verify,
     [](const support::AppOnCard& card, Application& application) {
         application.deleteCardObject(*card.channel,
                                      *application.getPrivateKeys(*card.channel).at(0));
     }},
    {"wipe", std::nullopt, verify,
     [](const support::AppOnCard& card, Application& application) {
         application.wipe(*card.channel);
     }},
};

// The card just before the operation's first command; the operation's
// commands are counted from here.
struct Start {
    support::AppOnCard card{support::cardWithKeyImage()};
    boost::shared_ptr<Application> application;

    explicit Start(const Operation& operation)
        : application(card.open()) {
        if (operation.prepare) {
            operation.prepare(card, *application);
        }
    }
    std::uint64_t commands() const {
        return card.virtualCard->instrumentation().counters().commands;
    }
};

// What an interrupted write left: items damaged, by the write's own value
// files or in a directory file it may damage.
struct Damaged {
    unsigned valueFiles = 0;
    bool directoryFile = false;
};

// Checks the card after an interrupted write against the card before and
// after the whole write.
Damaged expectOldOrNew(const Snapshot& before, const Snapshot& after, const Snapshot& torn,
                       const Operation& operation, const std::string& where) {
    std::set<std::string> keys;
    for (const Snapshot* items : {&before, &after, &torn}) {
        for (const auto& item : *items) {
            keys.insert(item.first);
        }
    }
    const std::string damageable =
        operation.mayDamage && operation.mayDamage->file ? operation.mayDamage->file : "-";
    Damaged damaged;
    for (const std::string& key : keys) {
        const auto find = [&key](const Snapshot& items) -> std::optional<std::string> {
            const auto found = items.find(key);
            return found == items.end() ? std::nullopt : std::optional(found->second);
        };
        const auto old = find(before), made = find(after), now = find(torn);
        const bool isFile = key.rfind("file ", 0) == 0 || key.rfind("key ", 0) == 0;
        if (old == made && (now == old || (isFile && !old))) {
            continue; // kept, or a file left over from the write: nothing lost
        }
        if (old != made && (now == old || now == made)) {
            continue;
        }
        if (old != made && isFile) {
            ++damaged.valueFiles; // the value the operation was writing
            continue;
        }
        if (key.find(" " + damageable + " ") != std::string::npos ||
            key == "garbage " + damageable) {
            damaged.directoryFile = true;
            continue;
        }
        ADD_FAILURE() << where << ": " << key << " was " << old.value_or("absent") << ", is "
                      << now.value_or("absent");
    }
    return damaged;
}

// The card lists everything; only the kind of a damaged directory file may
// fail, and then as invalid data.
void expectListing(const support::AppOnCard& card, const Operation& operation,
                   bool directoryFileDamaged, const std::string& where) {
    for (const auto& [kind, error] : enumerate(card)) {
        const auto& damage = operation.mayDamage;
        const bool reported = damage && (directoryFileDamaged || !damage->file) &&
                              std::string(damage->kinds).find(kind) != std::string::npos &&
                              error.rfind(damage->report, 0) == 0;
        EXPECT_TRUE(reported) << where << ": the card no longer lists its " << kind << ": "
                              << error;
    }
}

TEST(TornWrite, EveryOperationCutAtEveryCommandLeavesOldOrNew) {
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        Start clean(operation);
        const Snapshot before = snapshot(*clean.card.virtualCard);
        const std::uint64_t first = clean.commands();
        operation.write(clean.card, *clean.application);
        const std::uint64_t count = clean.commands() - first;
        const Snapshot after = snapshot(*clean.card.virtualCard);
        ASSERT_NE(before, after) << "the operation wrote nothing";
        ASSERT_TRUE(enumerate(clean.card).empty());

        unsigned points = 0, valueFiles = 0, directoryFiles = 0;
        for (std::uint64_t n = 1; n <= count; ++n) {
            for (const Fault fault : {Fault::CardRemoved, Fault::TornWrite}) {
                Start cut(operation);
                cut.card.virtualCard->instrumentation().injectFault(n, fault);
                EXPECT_ANY_THROW(operation.write(cut.card, *cut.application)) << "command " << n;
                const std::string where = std::string(operation.name) + ", command " +
                                          std::to_string(n) +
                                          (fault == Fault::TornWrite ? " torn" : " not applied");
                const Damaged damaged = expectOldOrNew(
                    before, after, snapshot(*cut.card.virtualCard), operation, where);
                expectListing(cut.card, operation, damaged.directoryFile, where);
                valueFiles += damaged.valueFiles;
                directoryFiles += damaged.directoryFile ? 1 : 0;
                ++points;
            }
        }
        std::cout << operation.name << ": " << count << " commands, " << points
                  << " injection points, " << valueFiles << " value files left damaged, "
                  << directoryFiles << " directory files left damaged\n";
    }
}

} // namespace
