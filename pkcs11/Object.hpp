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

    // Attributes of `deferred` types are filled in by `completion` on first use.
    void defer(std::vector<CK_ATTRIBUTE_TYPE> deferred, Completion completion);

    // The attributes, complete for the types of the template.
    const Attributes& attributesFor(const CK_ATTRIBUTE* entries, CK_ULONG count);
    // Every attribute, read from the card as needed.
    const Attributes& allAttributes();

private:
    void complete();

    CK_OBJECT_HANDLE handle_;
    boost::shared_ptr<app::object::ICardObject> source_;
    Attributes attributes_;
    std::vector<CK_ATTRIBUTE_TYPE> deferred_;
    Completion completion_;
};

} // namespace pkcs11

#endif
