#ifndef APP_OBJECT_ABSTRACTPRIVATEKEY_HPP
#define APP_OBJECT_ABSTRACTPRIVATEKEY_HPP

#include "app/object/IPrivateKey.hpp"
#include "app/object/SubjectKey.hpp"

namespace app {
namespace object {

class AbstractPrivateKey : public SubjectKey<IPrivateKey> {};

} // namespace object
} // namespace app

#endif
