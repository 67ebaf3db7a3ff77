#ifndef PKCS11_OBJECT_HPP
#define PKCS11_OBJECT_HPP

#include "pkcs11/Attributes.hpp"

#include <boost/shared_ptr.hpp>
#include <functional>

namespace app::object {
class ICardObject;
}

namespace pkcs11 {

// One object of a token as PKCS#11 presents it: its attributes, and the
// card object they come from. Attributes that cost card commands (a public
// key's modulus) are read the first time a caller asks for one of them.
class Object {
public:
    using Completion = std::function<void(Attributes&)>;

    Object(CK_OBJECT_HANDLE handle, boost::shared_ptr<app::object::ICardObject> source,
           Attributes attributes);

    CK_OBJECT_HANDLE handle() const { return handle_; }
    CK_OBJECT_CLASS objectClass() const;
    bool isPrivate() const;
    const boost::shared_ptr<app::object::ICardObject>& source() const { return source_; }

    /// Attributes of `deferred` types are filled in by `completion` the first
    /// time one of them is asked for; an object may have several such.
    void defer(std::vector<CK_ATTRIBUTE_TYPE> deferred, Completion completion);
    /// Gives the object another handle: the old one names nothing from now on.
    void renumber(CK_OBJECT_HANDLE handle) { handle_ = handle; }
    /// Replaces an attribute's value after its card object changed.
    void update(CK_ATTRIBUTE_TYPE type, Bytes value) {
        attributes_.setBytes(type, std::move(value));
    }

    // The attributes, complete for the types of the template.
    const Attributes& attributesFor(const CK_ATTRIBUTE* entries, CK_ULONG count);
    // Every attribute, read from the card as needed.
    const Attributes& allAttributes();

private:
    struct Deferred {
        std::vector<CK_ATTRIBUTE_TYPE> types;
        Completion completion;
    };

    // Runs the completions `wanted` picks; each runs once.
    template <class Wanted> void complete(Wanted wanted);

    CK_OBJECT_HANDLE handle_;
    boost::shared_ptr<app::object::ICardObject> source_;
    Attributes attributes_;
    std::vector<Deferred> deferred_;
};

} // namespace pkcs11

#endif
