// Every writing operation, cut off at each of its commands in turn: the card
// loses power before the command takes effect or, for UPDATE BINARY, after
// half of its data is written. Opened afresh, the card still lists all its
// objects; every item the operation was not writing (directory entry, value
// or key file, PIN) is byte-identical to before; what it was writing is old,
// new, or damaged as its operation's Damage allows: a torn directory file the
// host is told of, or an entry ahead of its files (missing, partly written,
// or for a replaced value still the old file).
#include "AppOnCard.hpp"
#include "HostileCard.hpp"

#include "app/crypto/IKeyPairGenerator.hpp"
#include "app/object/IDataObject.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IX509Certificate.hpp"
#include "app/pkcs15/fs/EntryLayout.hpp"
#include "card/CardException.hpp"
#include "host/ErrorMessage.hpp"
#include "host/iso7816/Tlv.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace {

using Application = app::pkcs15::P15Application;
using Snapshot = std::map<std::string, std::string>;
using Fault = vcard::Instrumentation::Fault;
using Card = support::AppOnCard;

// The directory files of the personalised card: ODF, TokenInfo, PrKDF,
// PuKDF, CDF, DODF, AODF. Their entries are compared one by one, wherever
// they moved.
const std::set<std::uint16_t> directoryFiles{0x5031, 0x5032, 0x4400, 0x4401,
                                             0x4404, 0x4407, 0x4408};

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
            if (!app::pkcs15::fs::EntryLayout::isHole(content[used])) { // holes list nothing
                snapshot["entry " + path + " " +
                         hex(vcard::Bytes(content.begin() + used, content.begin() + entry.end()))] =
                    "";
            }
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

// What a host opening the card reads (hostile::readEverything), after the
// card is reopened: the error of each kind that fails, by kind.
std::map<std::string, std::string> enumerate(const Card& card) {
    std::map<std::string, std::string> errors;
    const auto attempt = [&](const char* kind, const std::function<void()>& operation) {
        try {
            operation();
        } catch (const std::exception& e) {
            errors[kind] = host::errorMessage(e);
        }
    };
    boost::shared_ptr<Application> application;
    attempt("application", [&] { application = card.reopen(); });
    if (application) {
        hostile::readEverything(*application, *card.channel, attempt);
    }
    return errors;
}

// What a cut may leave of the object being written, and how the host then
// learns of it when it lists or reads that kind of object. An entry rewritten
// in place can be left torn: that entry alone is then left out of its list
// (EF(TokenInfo), one value, then reads as invalid data). Key
// generation, and a certificate or data object write, put the entry in
// before the files it names, in an order that is fixed: the new entry may
// name a file not there yet, or (a value replaced) the old file about to be
// deleted, which is shorter than the entry says (an error reading it) or
// longer (the read returns the start of the old value).
struct Damage {
    const char* file;               // the directory file whose entry may be torn, or nullptr
    const char* kinds;              // the objects whose listing or reading may fail
    std::vector<std::string> early; // the errors of an entry ahead of its files
};

const std::vector<std::string> valueMissing{"card exception: Select: 6A82"};
const std::vector<std::string> valueMissingOrOld{
    "card exception: Select: 6A82", "card exception: Read Binary: 6282",
    "invalid data exception: value shorter than its file"};

struct Operation {
    const char* name;
    std::optional<Damage> mayDamage;
    // What a cut at each command leaves, a pair of letters per command (cut
    // before it takes effect, cut halfway through its data): '.' old or new,
    // 'F' a file of the write damaged, 'A' an entry ahead of its files, 'B'
    // both, 'D' a torn directory entry. Pins the order of the card writes.
    const char* cuts;
    // Runs before the fault is armed: logins and the like.
    std::function<void(const Card&, Application&)> prepare;
    std::function<void(const Card&, Application&)> write;
    bool shortApdus = false;
};

// A 1024-bit pair generated on the card, with both entries.
void generateKeyPair(const Application& application, const card::IChannel& channel) {
    const support::RsaKeyPair pair = support::newKeyPair(application, "Generated", 1024, 1024);
    application.getKeyPairGenerator("1.2.840.113549.1.1.1")
        ->generate(channel, pair.privateKey, pair.publicKey);
}

const auto verify = &Card::verifyUserPin;

// A certificate anyone may read, as the host reads it on opening the card.
void writeCertificate(const Card& card, const Application& application) {
    const auto certificate = boost::dynamic_pointer_cast<app::object::IX509Certificate>(
        application.createCertificate(app::object::ICertificate::X509Certificate, {}));
    certificate->setLabel("Signer");
    certificate->setCertificateId(support::ascii("Sign"));
    certificate->setValue(support::certificateFile("small.der"));
    application.writeCardObject(*card.channel, *certificate);
}

// Data objects of 300 bytes without rules, one per label.
void writeDataObjects(const Card& card, const Application& application,
                      std::initializer_list<const char*> labels = {"Data"}) {
    for (const char* label : labels) {
        const auto data =
            application.createDataObject(app::object::IDataObject::OpaqueDataObject, {});
        data->setLabel(label);
        data->setApplicationName("p15kit test");
        data->setValue(mw::ByteBuffer(std::vector<unsigned char>(300, 0xA5)));
        application.writeCardObject(*card.channel, *data);
    }
}

// The card holding such objects before the operation.
void withCertificate(const Card& card, const Application& application) {
    card.verifyUserPin(application);
    writeCertificate(card, application);
}
void withDataObject(const Card& card, const Application& application) {
    card.verifyUserPin(application);
    writeDataObjects(card, application);
}
void withThreeDataObjects(const Card& card, const Application& application) {
    card.verifyUserPin(application);
    writeDataObjects(card, application, {"First", "Second", "Third"});
}

// The object at `index` of `listed`, relabelled with `label`.
template <class Listed>
void relabel(const Card& card, Application& application, const Listed& listed, std::size_t index,
             const char* label) {
    listed.at(index)->setLabel(label);
    application.writeCardObject(*card.channel, *listed.at(index));
}

const char* const longer = "A label longer than the one before";

const Operation operations[] = {
    {"change PIN", std::nullopt, ".. .. .. .. ..", nullptr,
     [](const Card& card, Application& application) {
         support::pinAt(application, *card.channel)
             ->change(*card.channel, support::ascii(support::userPin), support::ascii("654321"));
     }},
    {"unblock PIN", std::nullopt, "..",
     [](const Card& card, Application& application) {
         EXPECT_THROW(support::pinAt(application, *card.channel)
                          ->authenticate(*card.channel, support::ascii("000000")),
                      card::CardException);
     },
     [](const Card& card, Application& application) {
         support::pinAt(application, *card.channel)
             ->unblock(*card.channel, support::ascii(support::puk));
     }},
    {"relabel key", Damage{"3F00/5015/4400", "private keys", {}}, ".. .. .D", verify,
     [](const Card& card, Application& application) {
         relabel(card, application, application.getPrivateKeys(*card.channel), 0, longer);
     }},
    {"import key pair", std::nullopt, ".. .. .. .. .. .. .. .. .. .. .. .. FF FF .. .. .. .. .. ..",
     verify,
     [](const Card& card, Application& application) {
         support::importKeyPair(application, *card.channel, "Second key");
     }},
    {"generate key pair",
     Damage{nullptr,
            "private keys, public keys",
            {"card exception: Select: 6A82", "card exception: Generate Asymmetric Key Pair"}},
     ".. .. .. .. .. .. .. .. .. .. .. .. .. AA AA AA AA BB BB", verify,
     [](const Card& card, Application& application) {
         generateKeyPair(application, *card.channel);
     }},
    {"delete key", std::nullopt, ".. .. .. .. .. ..", verify,
     [](const Card& card, Application& application) {
         application.deleteCardObject(*card.channel,
                                      *application.getPrivateKeys(*card.channel).at(0));
     }},
    // Each kind listed: no cut leaves an entry whose object is gone.
    {"wipe", std::nullopt, ".. .. .. .. .. .. .. .. .. .. .. .. .. ..",
     [](const Card& card, Application& application) {
         withCertificate(card, application);
         writeDataObjects(card, application);
     },
     [](const Card& card, Application& application) { application.wipe(*card.channel); }},
    {"write certificate", Damage{nullptr, "certificates", valueMissing},
     ".. .. .. .. .. .. .. .. .. .. .. AA AA FF", verify, writeCertificate},
    {"replace certificate", Damage{"3F00/5015/4404", "certificates", valueMissingOrOld},
     ".. .. .. .. AA AA AA BB FF", withCertificate,
     [](const Card& card, Application& application) {
         const auto listed = application.getCertificates(*card.channel).at(0);
         listed->setValue(support::certificateFile("large.der"));
         application.writeCardObject(*card.channel, *listed);
     }},
    {"delete certificate", std::nullopt, ".. .. .. ..", withCertificate,
     [](const Card& card, Application& application) {
         application.deleteCardObject(*card.channel,
                                      *application.getCertificates(*card.channel).at(0));
     }},
    {"write data object", Damage{nullptr, "data objects", valueMissing},
     ".. .. .. .. .. .. .. .. .. .. .. AA AA FF", verify,
     [](const Card& card, Application& application) { writeDataObjects(card, application); }},
    {"replace data object", Damage{"3F00/5015/4407", "data objects", valueMissingOrOld},
     ".. .D AA AA BB FF", withDataObject,
     [](const Card& card, Application& application) {
         const auto listed = application.getDataObjects(*card.channel).at(0);
         listed->setLabel("Replaced data");
         listed->setValue(mw::ByteBuffer(std::vector<unsigned char>(200, 0x5A)));
         application.writeCardObject(*card.channel, *listed);
     }},
    // Entries with others after them, on a card that takes short APDUs only.
    {"delete the first of three data objects", std::nullopt, ".. .. .. ..", withThreeDataObjects,
     [](const Card& card, Application& application) {
         application.deleteCardObject(*card.channel,
                                      *application.getDataObjects(*card.channel).at(0));
     },
     true},
    {"relabel the middle of three data objects", std::nullopt, ".. .. .. ..", withThreeDataObjects,
     [](const Card& card, Application& application) {
         relabel(card, application, application.getDataObjects(*card.channel), 1, longer);
     },
     true},
    {"relabel the first of three data objects, shorter", std::nullopt, ".. .. .. ..",
     withThreeDataObjects,
     [](const Card& card, Application& application) {
         relabel(card, application, application.getDataObjects(*card.channel), 0, "1");
     }},
    {"token label", Damage{"3F00/5015/5032", "token info", {}}, ".. .. .D", verify,
     [](const Card& card, Application& application) {
         const auto info = application.getApplicationInfo(*card.channel);
         info->setLabel("A token label longer than the one before");
         application.writeCardObject(*card.channel, *info);
     }},
};

// The card just before the operation's first command; the operation's
// commands are counted from here.
struct Start {
    support::AppOnCard card{support::cardWithKeyImage()};
    boost::shared_ptr<Application> application;

    explicit Start(const Operation& operation) {
        card.virtualCard->setExtendedLength(!operation.shortApdus);
        application = card.open();
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
        const bool isValueFile = key.rfind("file ", 0) == 0;
        const bool isFile = isValueFile || key.rfind("key ", 0) == 0;
        if (old == made && (now == old || (isFile && !old))) {
            continue; // kept, or a file left over from the write: nothing lost
        }
        if (old != made && (now == old || now == made)) {
            continue;
        }
        // A value file being written may be cut short: deleted and not yet
        // made again, or made for the new value with part of it; a key file
        // may be made and not yet hold its key.
        if (old != made && isFile &&
            (isValueFile ? !now || (made && now->size() == made->size()) : bool(now))) {
            ++damaged.valueFiles;
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

// The card lists and reads everything; only the kinds of the object being
// written may fail, with an error of an entry ahead of its files, or as
// invalid data when the token information is torn. Whether one was ahead.
bool expectListing(const Card& card, const Operation& operation, bool directoryFileDamaged,
                   const std::string& where) {
    bool ahead = false;
    for (const auto& [kind, error] : enumerate(card)) {
        const auto& damage = operation.mayDamage;
        const bool ours = damage && std::string(damage->kinds).find(kind) != std::string::npos;
        const bool early =
            ours && std::any_of(damage->early.begin(), damage->early.end(),
                                [&](const std::string& text) { return error.rfind(text, 0) == 0; });
        ahead = ahead || early;
        // A torn entry is left out with a note; only EF(TokenInfo), one value
        // of its own, is refused whole.
        const bool tornTokenInfo =
            ours && directoryFileDamaged && kind == std::string("token info");
        EXPECT_TRUE(early || (tornTokenInfo && error.rfind("invalid data exception", 0) == 0))
            << where << ": the card no longer lists its " << kind << ": " << error;
    }
    return ahead;
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
        const auto errors = enumerate(clean.card);
        ASSERT_TRUE(errors.empty()) << errors.begin()->first << ": " << errors.begin()->second;

        std::string cuts;
        for (std::uint64_t n = 1; n <= count; ++n) {
            cuts += n > 1 ? " " : "";
            for (const Fault fault : {Fault::CardRemoved, Fault::TornWrite}) {
                Start cut(operation);
                cut.card.virtualCard->instrumentation().injectFault(n, fault);
                EXPECT_ANY_THROW(operation.write(cut.card, *cut.application)) << "command " << n;
                const std::string where = std::string(operation.name) + ", command " +
                                          std::to_string(n) +
                                          (fault == Fault::TornWrite ? " torn" : " not applied");
                const Damaged damaged = expectOldOrNew(
                    before, after, snapshot(*cut.card.virtualCard), operation, where);
                const bool ahead = expectListing(cut.card, operation, damaged.directoryFile, where);
                const bool file = damaged.valueFiles > 0;
                cuts += damaged.directoryFile ? 'D'
                        : ahead && file       ? 'B'
                        : ahead               ? 'A'
                        : file                ? 'F'
                                              : '.';
            }
        }
        EXPECT_EQ(cuts, operation.cuts);
    }
}

} // namespace
