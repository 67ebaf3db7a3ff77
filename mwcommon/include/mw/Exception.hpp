#ifndef MW_EXCEPTION_HPP
#define MW_EXCEPTION_HPP

#include "mw/Visibility.hpp"

#include <boost/current_function.hpp>
#include <exception>
#include <string>

namespace mw {

// Base of the foundation's own failures (bad argument, bad index, null
// pointer). The throw site is part of the text, so what() alone tells where.
class MW_EXPORT_TYPE Exception : public std::exception {
public:
    Exception(const std::string& file, const std::string& function, int line,
              const std::string& description)
        : description_("Error in: " + file + " (" + std::to_string(line) + ") " + function +
                       ", Description: " + description)
        , file_(file)
        , function_(function)
        , line_(line) {}
    ~Exception() override = default;
    const char* what() const noexcept override { return description_.c_str(); }

    const std::string& file() const { return file_; }
    const std::string& function() const { return function_; }
    int line() const { return line_; }

private:
    std::string description_;
    std::string file_;
    std::string function_;
    int line_;
};

class MW_EXPORT_TYPE IllegalArgumentException : public Exception {
public:
    using Exception::Exception;
};

class MW_EXPORT_TYPE IndexException : public Exception {
public:
    using Exception::Exception;
};

class MW_EXPORT_TYPE NullPointerException : public Exception {
public:
    using Exception::Exception;
};

} // namespace mw

// Throws a foundation exception carrying the current throw site.
#define MW_THROW(ExceptionClass, description)                                                      \
    throw ExceptionClass(__FILE__, BOOST_CURRENT_FUNCTION, __LINE__, (description))

#endif
