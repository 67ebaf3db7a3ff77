#ifndef APP_OBJECT_IAPPLICATIONINFO_HPP
#define APP_OBJECT_IAPPLICATIONINFO_HPP

#include "app/object/ICardObject.hpp"

#include <cstdint>

namespace app {
namespace object {

// What the card says about the application (its token information).
class MW_EXPORT_TYPE IApplicationInfo : public virtual ICardObject {
public:
    enum ApplicationInfoType : std::uint32_t { TokenInfo };
};

} // namespace object
} // namespace app

#endif
