#ifndef CARD_IBASEINTERFACE_HPP
#define CARD_IBASEINTERFACE_HPP

#include "mw/Visibility.hpp"
#include <boost/shared_ptr.hpp>
#include <string>

namespace card {

// Root of everything a card object hands out by name (the card services).
class MW_EXPORT_TYPE IInterface {
public:
    virtual ~IInterface() = default;
};

// Lookup of named interfaces: "PinManagementService", "FileAccessService",
// "FileSystemService", "CryptographyService", "AsymmetricKeyManagementService".
class MW_EXPORT_TYPE IBaseInterface : public virtual IInterface {
public:
    virtual bool hasInterface(const std::string& name) const = 0;
    // Null when there is no interface of that name.
    virtual boost::shared_ptr<IInterface> getInterface(const std::string& name) const = 0;
};

} // namespace card

#endif
