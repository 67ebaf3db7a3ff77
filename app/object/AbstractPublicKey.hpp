#ifndef APP_OBJECT_ABSTRACTPUBLICKEY_HPP
#define APP_OBJECT_ABSTRACTPUBLICKEY_HPP

#include "app/object/IPublicKey.hpp"
#include "app/object/SubjectKey.hpp"

namespace app {
namespace object {

class AbstractPublicKey : public SubjectKey<IPublicKey> {};

} // namespace object
} // namespace app

#endif
