#ifndef APP_OBJECT_ISECRETKEY_HPP
#define APP_OBJECT_ISECRETKEY_HPP

#include "app/object/IKey.hpp"

#include <cstdint>

namespace app {
namespace object {

// A symmetric key; this application holds none.
class MW_EXPORT_TYPE ISecretKey : public virtual IKey {
public:
    enum SecretKeyType : std::uint32_t { GenericSecretKey };
};

} // namespace object
} // namespace app

#endif
