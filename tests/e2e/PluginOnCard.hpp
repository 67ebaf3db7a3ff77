#ifndef TESTS_E2E_PLUGINONCARD_HPP
#define TESTS_E2E_PLUGINONCARD_HPP

// The plugin loaded as a host loads it (libp15app.so through QueryPlugin),
// on an in-process virtual card reached through the host card layer.
#include "AppErrors.hpp"
#include "AppOnCard.hpp"
#include "CardFixture.hpp"

#include "app/IApplication.hpp"
#include "app/crypto/IKeyPairGenerator.hpp"
#include "app/crypto/ISignature.hpp"
#include "host/iso7816/Tlv.hpp"
#include "host/loader/PluginLoader.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

namespace e2e {

inline const std::string rsaEncryption = "1.2.840.113549.1.1.1";
inline const std::string sha256WithRsa = "1.2.840.113549.1.1.11";

class PluginCard : public support::AppOnCard {
    host::PluginLoader loader_; // outlives what the plugin handed out

public:
    // The user PIN verified.
    explicit PluginCard(const vcard::Personalisation& options = {})
        : AppOnCard(vcard::personalise(options))
        , loader_(P15APP_PATH, hosttest::NoConfiguration()) {
        verifyUserPin(*open());
        reopen();
    }

    // The application anew, as the plugin hands it to a host: nothing cached.
    void reopen() {
        application = loader_.getApplications(card, *channel).at(0);
        repository = boost::dynamic_pointer_cast<app::object::ICardObjectRepository>(application);
        factory = boost::dynamic_pointer_cast<app::object::ICardObjectFactory>(application);
    }

    template <class Operation> std::uint64_t commandsOf(Operation operation) const {
        const std::uint64_t before = commands();
        operation();
        return commands() - before;
    }
    bool exists(const mw::ByteBuffer& id) const {
        try {
            files()->select(*channel, id);
            return true;
        } catch (const card::CardException&) {
            return false;
        }
    }
    // Puts `content` at the start of the file, as another program would.
    void put(const mw::ByteBuffer& id, const mw::ByteBuffer& content) const {
        files()->select(*channel, id);
        files()->update(*channel, 0, content);
    }
    // The DER value (a directory entry) at the start of `bytes`.
    static mw::ByteBuffer firstEntry(const mw::ByteBuffer& bytes) {
        return bytes.get(0, host::iso7816::TlvReader(bytes).next().end());
    }

    support::RsaKeyPair generate(std::uint16_t bits, const std::string& label) const {
        const support::RsaKeyPair pair = support::newKeyPair(*factory, label, bits, bits);
        application->getKeyPairGenerator(rsaEncryption)
            ->generate(*channel, pair.privateKey, pair.publicKey);
        return pair;
    }
    mw::ByteBuffer sign(const std::string& oid, const support::RsaKeyPair& key,
                        const mw::ByteBuffer& data) const {
        const auto engine = application->getSignature(oid);
        engine->init(*channel, app::crypto::ISignature::Sign, *key.privateKey);
        return engine->sign(*channel, data);
    }
    bool verify(const std::string& oid, const support::RsaKeyPair& key, const mw::ByteBuffer& data,
                const mw::ByteBuffer& signature) const {
        const auto engine = application->getSignature(oid);
        engine->init(*channel, app::crypto::ISignature::Verify, *key.publicKey);
        return engine->verify(*channel, data, signature);
    }

    boost::shared_ptr<app::IApplication> application;
    boost::shared_ptr<app::object::ICardObjectRepository> repository;
    boost::shared_ptr<app::object::ICardObjectFactory> factory;
};

} // namespace e2e

#endif
