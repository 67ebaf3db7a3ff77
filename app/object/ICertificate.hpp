#ifndef APP_OBJECT_ICERTIFICATE_HPP
#define APP_OBJECT_ICERTIFICATE_HPP

#include "app/object/ICardObject.hpp"

#include <cstdint>

namespace app {
namespace object {

// A certificate stored on the card.
class MW_EXPORT_TYPE ICertificate : public virtual ICardObject {
public:
    enum CertificateType : std::uint32_t { X509Certificate, AttributeCertificate };
};

} // namespace object
} // namespace app

#endif
