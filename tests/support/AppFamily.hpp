#ifndef TESTS_SUPPORT_APPFAMILY_HPP
#define TESTS_SUPPORT_APPFAMILY_HPP

#include "app/ApplicationException.hpp"

#include <string>

namespace p15test {

// The exact family of an application exception, so that a test naming
// ApplicationException does not pass on an InvalidDataException.
inline std::string familyOf(const app::ApplicationException& e) {
    return dynamic_cast<const app::InvalidDataException*>(&e) ? "InvalidDataException"
           : dynamic_cast<const app::OperationNotSupportedException*>(&e)
               ? "OperationNotSupportedException"
           : dynamic_cast<const app::OutOfMemoryException*>(&e) ? "OutOfMemoryException"
                                                                : "ApplicationException";
}

} // namespace p15test

// A family as the test names it, without its namespace.
#define P15TEST_FAMILY_NAME(Family) std::string(#Family).substr(std::string(#Family).rfind(':') + 1)

#endif
