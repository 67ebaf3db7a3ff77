#ifndef PKCS11_TOKEN_HPP
#define PKCS11_TOKEN_HPP

#include "app/IAccessControlled.hpp"
#include "app/object/IPin.hpp"
#include "card/IChannel.hpp"
#include "mw/ByteBuffer.hpp"
#include "pkcs11/Mechanisms.hpp"
#include "pkcs11/Object.hpp"

#include <boost/shared_ptr.hpp>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace app {
class IApplication;
namespace object {
class ICardObjectFactory;
class ICardObjectRepository;
} // namespace object
} // namespace app
namespace card {
class ICard;
}
namespace host {
class Channel;
class PluginLoader;
} // namespace host

namespace pkcs11 {

// What C_GenerateKeyPair's templates ask for.
struct KeyPairRequest {
    std::uint16_t bits = 0;
    std::string label;
    mw::ByteBuffer id; // empty: the module chooses
    std::uint16_t privateUsage = 0;
    std::uint16_t publicUsage = 0;
    bool privateObject = true;
};

// How many sessions a token has open, for its token information.
struct SessionCounts {
    CK_ULONG all = 0;
    CK_ULONG readWrite = 0;
};

// The PKCS#15 application of one card, as a PKCS#11 token: its description,
// its PINs and login state, and its objects. It holds the connection to the
// card for as long as the card stays in its slot.
class Token {
public:
    // Connects to the card through `transport` and finds its PKCS#15
    // application with the plugin; a card without one is
    // CKR_TOKEN_NOT_RECOGNIZED.
    Token(const host::PluginLoader& loader, std::unique_ptr<card::ICardTransport> transport,
          std::string label);
    ~Token();
    Token(const Token&) = delete;
    Token& operator=(const Token&) = delete;

    void describe(CK_TOKEN_INFO& info, const SessionCounts& sessions);

    // Login state and PINs (TokenPins.cpp).
    std::optional<CK_USER_TYPE> loggedIn() const { return loggedIn_; }
    void login(CK_USER_TYPE user, const mw::ByteBuffer& pin);
    void logout();
    // Changes the PIN of whoever is logged in, the user PIN when nobody is.
    void setPin(const mw::ByteBuffer& oldPin, const mw::ByteBuffer& newPin);
    // Gives the user PIN a new value and all its tries with the unblocking
    // PIN the SO logged in with; an empty value only restores the tries.
    void initPin(const mw::ByteBuffer& newPin);
    // Forgets the login without telling the card (it was reset or removed).
    void forgetLogin();
    // Another program's reset of the card ended the login on the card: the
    // token forgets it too, so that its sessions are public again. The
    // directory files of a card another program is known to have changed
    // are read again, so that no write of this token undoes the change.
    void followReset();

    // Objects (TokenObjects.cpp). Private objects are visible only while
    // the user is logged in.
    std::vector<CK_OBJECT_HANDLE> find(const CK_ATTRIBUTE* entries, CK_ULONG count);
    // A visible object; any other handle is `unknown`.
    Object& object(CK_OBJECT_HANDLE handle, CK_RV unknown = CKR_OBJECT_HANDLE_INVALID);
    /// Gives every private object a new handle, as C_Logout must: a handle
    /// the user had stays invalid after the next login too.
    void retirePrivateHandles();

    // Stores a new certificate or data object on the card and returns its
    // handle; removes an object from the card (TokenKeys.cpp).
    CK_OBJECT_HANDLE createObject(const CK_ATTRIBUTE* entries, CK_ULONG count);
    void destroyObject(CK_OBJECT_HANDLE handle);
    /// Gives an object the CKA_LABEL and CKA_ID of the template by rewriting
    /// its card entry; every other attribute is read-only (TokenEdits.cpp).
    void setAttributes(CK_OBJECT_HANDLE handle, const CK_ATTRIBUTE* entries, CK_ULONG count);

    // Generates a key pair on the card and returns the handles of its
    // public and private key objects (TokenKeys.cpp).
    std::pair<CK_OBJECT_HANDLE, CK_OBJECT_HANDLE> generateKeyPair(const KeyPairRequest& request);

    // Private-key work on the card with the key of `object`, and the card's
    // random numbers (TokenCrypto.cpp).
    // `algorithm` is the plugin's name of the signature or cipher algorithm.
    mw::ByteBuffer sign(const Object& key, const mw::ByteBuffer& input,
                        const std::string& algorithm);
    mw::ByteBuffer decipher(const Object& key, const mw::ByteBuffer& cipherText,
                            const std::string& algorithm);
    // Whether the card performs the mechanism's private-key half; asked of
    // the plugin once per card.
    bool performs(const Mechanism& mechanism);
    mw::ByteBuffer random(std::size_t count);

    const card::IChannel& channel() const;
    app::object::ICardObjectRepository& repository() const { return *repository_; }

private:
    using PinPtr = boost::shared_ptr<app::object::IPin>;

    struct Pins {
        PinPtr user;
        PinPtr unblocking;
    };

    const Pins& pins();
    const app::object::IPin& userPin();
    const app::object::IPin& unblockingPin();
    CK_FLAGS pinFlags(const app::object::IPin& pin, CK_FLAGS low, CK_FLAGS finalTry,
                      CK_FLAGS locked);
    // Runs a card command that presents `pin`; a refusal tells how many
    // tries the PIN had, which the tries-left flags compare with.
    template <class Operation> void tryPin(const app::object::IPin& pin, Operation operation);
    void checkPinLength(const app::object::IPin& pin, const mw::ByteBuffer& value) const;
    mw::ByteBuffer padded(const app::object::IPin& pin, const mw::ByteBuffer& value) const;

    std::vector<std::unique_ptr<Object>>& objects();
    // Adds an object the token has just stored on the card.
    void keep(std::unique_ptr<Object> object);
    // Gives a key object CKA_ALLOWED_MECHANISMS: what the token does with a
    // key of its class and usage (TokenCrypto.cpp).
    void offerMechanisms(Object& object);
    // Whether an object other than `except`, of `objectClass` or of any
    // class, has the CKA_ID `id`.
    bool idTaken(const Bytes& id, std::optional<CK_OBJECT_CLASS> objectClass = std::nullopt,
                 const Object* except = nullptr);
    mw::ByteBuffer unusedKeyId();
    // One rule: `modes` (AccessControlRule bits) only after the user PIN.
    app::AccessControlRules userPinRules(std::uint16_t modes);
    app::object::ICardObjectFactory& factory() const;
    bool isVisible(const Object& object) const;

    std::string label_;
    boost::shared_ptr<host::Channel> channel_;
    boost::shared_ptr<card::ICard> card_;
    boost::shared_ptr<app::IApplication> application_;
    app::object::ICardObjectRepository* repository_ = nullptr;

    std::optional<Pins> pins_;
    // The most tries each PIN (by authId) was seen with, or had before a
    // refusal: its maximum as far as this token knows; fewer tries left
    // means wrong values were given since the last right one.
    std::map<Bytes, std::uint16_t> mostTries_;
    std::optional<CK_USER_TYPE> loggedIn_;
    // The unblocking PIN the SO logged in with, kept for C_InitPIN until
    // logout; wiped when released.
    mw::ByteBuffer soSecret_;
    // The transport's reset count when the login state was last known.
    unsigned long resetsSeen_ = 0;
    // The transport's change count when the application last read the card.
    unsigned long changesSeen_ = 0;

    std::optional<std::vector<std::unique_ptr<Object>>> objects_;
    CK_OBJECT_HANDLE nextHandle_;
    // What the card was found to perform, by mechanism.
    std::map<CK_MECHANISM_TYPE, bool> performed_;
};

// A text padded with blanks into a fixed-size CK_UTF8CHAR field, cut at a
// character boundary when too long.
void putText(CK_UTF8CHAR* field, std::size_t size, const std::string& text);

} // namespace pkcs11

#endif
