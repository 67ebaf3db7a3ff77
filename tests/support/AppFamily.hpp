#ifndef TESTS_SUPPORT_APPFAMILY_HPP
#define TESTS_SUPPORT_APPFAMILY_HPP

#include "app/ApplicationException.hpp"

#include <string>

namespace p15test {

// The exact family of an application exception: a test that names
// ApplicationException must not pass on an InvalidDataException.
inline std::string familyOf(const app::ApplicationException& e) {
    if (dynamic_cast<const app::InvalidDataException*>(&e)) {
        return "InvalidDataException";
    }
    if (dynamic_cast<const app::OperationNotSupportedException*>(&e)) {
        return "OperationNotSupportedException";
    }
    if (dynamic_cast<const app::OutOfMemoryException*>(&e)) {
        return "OutOfMemoryException";
    }
    return "ApplicationException";
}

} // namespace p15test

// The family named as written, without its namespace.
#define P15TEST_FAMILY_NAME(Family) std::string(#Family).substr(std::string(#Family).rfind(':') + 1)

#endif
