#include "HostileCard.hpp"

#include "AppOnCard.hpp"
#include "app/ApplicationException.hpp"
#include "app/crypto/ICipher.hpp"
#include "app/crypto/IRandom.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicKey.hpp"
#include "app/pkcs15/object/P15DataObject.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"
#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "host/ErrorMessage.hpp"
#include "mw/Exception.hpp"

#include <boost/exception/get_error_info.hpp>
#include <boost/make_shared.hpp>
#include <functional>
#include <stdexcept>

namespace hostile {

namespace {

// Status words a card layer must tell apart, and the ones that ask it to
// come back (61xx, 6Cxx).
constexpr std::uint16_t notableStatusWords[] = {
    0x9000, 0x6100, 0x61FF, 0x6101, 0x6C00, 0x6C01, 0x6CFF, 0x6281, 0x6282, 0x6283, 0x63C0,
    0x63C1, 0x63CF, 0x6581, 0x6700, 0x6982, 0x6983, 0x6984, 0x6985, 0x6A80, 0x6A82, 0x6A84,
    0x6A86, 0x6A88, 0x6B00, 0x6D00, 0x6E00, 0x6F00, 0x9100, 0x0000, 0xFFFF};

// clang-format off
enum class Spoil { Truncate, StatusWordOnly, OtherStatusWord, RandomAnswer, Oversized, FlipBit, NoAnswer, ExtraData, MoreDataWaiting, Count };
// clang-format on

void appendStatusWord(std::vector<unsigned char>& answer, std::uint16_t sw) {
    answer.push_back(static_cast<unsigned char>(sw >> 8));
    answer.push_back(static_cast<unsigned char>(sw));
}

// A message, marked "unclear" without a text or a status word (a PIN value
// the entry rules out names value and rule in its own fields).
template <class Exception> std::string described(const char* name, const Exception& e) {
    const bool clear = boost::get_error_info<card::ErrorText>(e) ||
                       boost::get_error_info<card::StatusCode>(e) ||
                       boost::get_error_info<app::ErrorText>(e) ||
                       dynamic_cast<const app::object::InvalidPinException*>(&e);
    return std::string(clear ? "" : "unclear: ") + name + ": " + host::errorMessage(e);
}

void attempt(Outcome& outcome, const char* name, const std::function<void()>& operation) {
    try {
        operation();
    } catch (const card::CardException& e) {
        outcome.errors.push_back(described(name, e));
    } catch (const app::ApplicationException& e) {
        outcome.errors.push_back(described(name, e));
    } catch (const mw::Exception& e) {
        // The foundation's and the crypto provider's own failures: a key the
        // card answered with that the provider refuses, say.
        outcome.errors.push_back(std::string(name) + ": " + e.what());
    }
}

template <class T> boost::shared_ptr<T> first(const std::vector<boost::shared_ptr<T>>& objects) {
    return objects.empty() ? nullptr : objects.front();
}

// Reads the value of a listed certificate or data object: what the entry
// names must be the whole of its file.
template <class ValueObject, class Listed>
void readValue(const app::pkcs15::P15Application& application, const card::IChannel& channel,
               const Listed& listed) {
    application.readCardObject(channel, *listed);
    const auto& object = dynamic_cast<const ValueObject&>(*listed);
    const card::service::IFileAccessService& files = *application.getFileAccessService();
    files.select(channel, object.getValueLocation().path);
    if (files.read(channel, 0, 0) != object.getValue()) {
        APP_THROW(app::InvalidDataException, "value shorter than its file");
    }
}

// The first key pair listed: signed on the card and checked in software, or
// enciphered in software and deciphered on the card.
void useFirstKeyPair(const app::pkcs15::P15Application& app, const card::IChannel& channel,
                     bool sign) {
    const auto privateKey = first(app.getPrivateKeys(channel));
    const auto publicKey = first(app.getPublicKeys(channel));
    if (!privateKey || !publicKey) {
        return;
    }
    app.readCardObject(channel, *publicKey);
    const mw::ByteBuffer data = support::ascii("hostile");
    using app::crypto::ICipher;
    using app::crypto::ISignature;
    if (sign) {
        const std::string sha256WithRsa = "1.2.840.113549.1.1.11";
        const auto signer = app.getSignature(sha256WithRsa);
        signer->init(channel, ISignature::Sign, *privateKey);
        const mw::ByteBuffer signature = signer->sign(channel, data);
        const auto verifier = app.getSignature(sha256WithRsa);
        verifier->init(channel, ISignature::Verify, *publicKey);
        verifier->verify(channel, data, signature);
    } else {
        const std::string rsaEncryption = "1.2.840.113549.1.1.1";
        const auto encipher = app.getCipher(rsaEncryption);
        encipher->init(channel, ICipher::Encipher, *publicKey);
        const mw::ByteBuffer enciphered = encipher->encipher(channel, data);
        const auto decipher = app.getCipher(rsaEncryption);
        decipher->init(channel, ICipher::Decipher, *privateKey);
        decipher->decipher(channel, enciphered);
    }
}

void runOnApplication(Outcome& outcome, const app::pkcs15::P15Application& app,
                      const card::IChannel& channel) {
    readEverything(app, channel, [&](const char* name, const std::function<void()>& operation) {
        attempt(outcome, name, operation);
    });
    boost::shared_ptr<app::object::IPin> pin; // the first: the user PIN
    attempt(outcome, "verify", [&] {
        pin = boost::dynamic_pointer_cast<app::object::IPin>(first(app.getAuthObjects(channel)));
        if (pin) {
            pin->authenticate(channel, support::ascii(support::userPin));
        }
    });
    attempt(outcome, "sign and verify", [&] { useFirstKeyPair(app, channel, true); });
    attempt(outcome, "encipher and decipher", [&] { useFirstKeyPair(app, channel, false); });
    attempt(outcome, "random", [&] { app.getRandom()->generate(channel, 16); });
    attempt(outcome, "relabel", [&] {
        if (const auto key = first(app.getPrivateKeys(channel))) {
            key->setLabel("Relabelled");
            app.writeCardObject(channel, *key);
        }
    });
    if (pin) {
        attempt(outcome, "change PIN", [&] {
            pin->change(channel, support::ascii(support::userPin), support::ascii("654321"));
        });
        attempt(outcome, "unblock PIN",
                [&] { pin->unblock(channel, support::ascii(support::puk)); });
    }
}

// Forwards every command to an honest card and spoils some of its answers.
class HostileTransport : public card::ICardTransport {
public:
    static constexpr std::size_t commandLimit = 5000;

    HostileTransport(std::unique_ptr<card::ICardTransport> honest, Choices& choices)
        : honest_(std::move(honest))
        , choices_(choices)
        , spoilOneIn_(1u << choices.below(9)) {}

    mw::ByteBuffer getAtr() const override { return honest_->getAtr(); }
    boost::shared_ptr<mw::ByteBuffer> transmit(const card::Apdu& command) const override {
        if (++commands_ > commandLimit) {
            throw std::logic_error("more than " + std::to_string(commandLimit) +
                                   " commands in one case: the card layer keeps asking");
        }
        const boost::shared_ptr<mw::ByteBuffer> answer = honest_->transmit(command);
        return choices_.below(spoilOneIn_) != 0 ? answer : spoil(answer);
    }
    void beginTransaction() const override {}
    void endTransaction() const override {}
    std::size_t commands() const { return commands_; }

private:
    using Answer = std::vector<unsigned char>;

    boost::shared_ptr<mw::ByteBuffer> spoil(const boost::shared_ptr<mw::ByteBuffer>& honest) const {
        Answer answer;
        if (honest) {
            answer.assign(honest->begin(), honest->end());
        }
        const std::size_t size = answer.size();
        const std::size_t dataSize = size < 2 ? 0 : size - 2;
        Answer extra;
        // clang-format off
        switch (static_cast<Spoil>(choices_.below(static_cast<std::uint32_t>(Spoil::Count)))) {
        case Spoil::Truncate: answer.resize(choices_.below(static_cast<std::uint32_t>(size))); break;
        case Spoil::StatusWordOnly: answer.clear(); appendStatusWord(answer, statusWord()); break;
        case Spoil::OtherStatusWord: answer.resize(dataSize); appendStatusWord(answer, statusWord()); break;
        case Spoil::RandomAnswer: answer.clear(); appendRandom(answer, choices_.below(600)); break;
        case Spoil::Oversized:
            answer.resize(dataSize); appendRandom(answer, 0x10000 + choices_.below(0x100)); appendStatusWord(answer, 0x9000);
            break;
        case Spoil::FlipBit:
            if (dataSize > 0) {
                answer[choices_.below(static_cast<std::uint32_t>(dataSize))] ^= static_cast<unsigned char>(1u << choices_.below(8));
            }
            break;
        case Spoil::NoAnswer: return nullptr;
        case Spoil::ExtraData:
            appendRandom(extra, 1 + choices_.below(300));
            answer.insert(answer.begin() + static_cast<std::ptrdiff_t>(dataSize), extra.begin(), extra.end());
            break;
        case Spoil::MoreDataWaiting: answer.resize(dataSize); appendStatusWord(answer, static_cast<std::uint16_t>(0x6100 | choices_.below(256))); break;
        case Spoil::Count: break;
        }
        // clang-format on
        return boost::make_shared<mw::ByteBuffer>(answer);
    }
    void appendRandom(Answer& out, std::size_t count) const {
        for (std::size_t i = 0; i < count; ++i) {
            out.push_back(static_cast<unsigned char>(choices_.below(256)));
        }
    }
    std::uint16_t statusWord() const {
        constexpr auto notable = sizeof notableStatusWords / sizeof notableStatusWords[0];
        const std::uint32_t pick = choices_.below(notable + 1);
        return pick < notable ? notableStatusWords[pick]
                              : static_cast<std::uint16_t>(choices_.below(0x10000));
    }

    std::unique_ptr<card::ICardTransport> honest_;
    Choices& choices_;
    std::uint32_t spoilOneIn_;
    mutable std::size_t commands_ = 0;
};

} // namespace

void readEverything(const app::pkcs15::P15Application& application, const card::IChannel& channel,
                    const Attempt& attempt) {
    attempt("PINs", [&] {
        for (const auto& pin : application.getAuthObjects(channel)) {
            boost::dynamic_pointer_cast<app::object::IPin>(pin)->getPinInfo(channel);
        }
    });
    attempt("public keys", [&] {
        for (const auto& key : application.getPublicKeys(channel)) {
            application.readCardObject(channel, *key);
        }
    });
    attempt("private keys", [&] {
        // A listed key whose key file is gone is neither the old object nor the new one.
        for (const auto& key : application.getPrivateKeys(channel)) {
            const auto rsa = boost::dynamic_pointer_cast<app::object::IPrivateRSAKey>(key);
            application.getFileAccessService()->select(channel, rsa->getKeyValueReference());
        }
    });
    attempt("token info", [&] { application.getApplicationInfo(channel); });
    attempt("certificates", [&] {
        for (const auto& certificate : application.getCertificates(channel)) {
            readValue<app::pkcs15::object::P15X509Certificate>(application, channel, certificate);
        }
    });
    attempt("data objects", [&] {
        for (const auto& data : application.getDataObjects(channel)) {
            readValue<app::pkcs15::object::P15DataObject>(application, channel, data);
        }
    });
}

std::uint32_t InputChoices::below(std::uint32_t bound) {
    std::uint32_t value = 0;
    for (std::uint64_t range = 1; range < bound && position < size; range <<= 8) {
        value = value << 8 | data[position++];
    }
    return bound == 0 ? 0 : value % bound;
}

Outcome runWorkload(const support::AppOnCard& card) {
    Outcome outcome;
    const card::IChannel& channel = *card.channel;
    boost::shared_ptr<app::pkcs15::P15Application> application;
    attempt(outcome, "open", [&] { application = card.open(); });
    if (application) {
        runOnApplication(outcome, *application, channel);
    }
    attempt(outcome, "algorithms", [&] { card.session->algorithms(); });
    return outcome;
}

Outcome runCase(Choices& choices) {
    const HostileTransport* hostile = nullptr;
    support::AppOnCard card(
        support::cardWithKeyImage(), [&](std::unique_ptr<card::ICardTransport> honest) {
            auto wrapped = std::make_unique<HostileTransport>(std::move(honest), choices);
            hostile = wrapped.get();
            return wrapped;
        });
    Outcome outcome = runWorkload(card);
    outcome.commands = hostile->commands();
    return outcome;
}

} // namespace hostile
