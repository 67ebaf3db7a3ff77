#ifndef APP_APPLICATIONEXCEPTION_HPP
#define APP_APPLICATIONEXCEPTION_HPP

#include "mw/Visibility.hpp"

#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/throw_exception.hpp>
#include <exception>
#include <string>

namespace app {

// The PKCS#15 application cannot do what was asked.
class MW_EXPORT_TYPE ApplicationException : public virtual std::exception,
                                            public virtual boost::exception {
public:
    const char* what() const noexcept override { return "application exception"; }
};

class MW_EXPORT_TYPE InvalidDataException : public ApplicationException {
public:
    const char* what() const noexcept override { return "invalid data exception"; }
};

class MW_EXPORT_TYPE OperationNotSupportedException : public ApplicationException {
public:
    const char* what() const noexcept override { return "operation not supported exception"; }
};

class MW_EXPORT_TYPE OutOfMemoryException : public ApplicationException {
public:
    const char* what() const noexcept override { return "out of memory exception"; }
};

struct tag_error_text;
struct tag_error_data;
struct tag_error_detail;

using ErrorText = boost::error_info<tag_error_text, const char*>;
using ErrorData = boost::error_info<tag_error_data, unsigned int>;
// What a fixed text cannot say: which objects, which card answers.
using ErrorDetail = boost::error_info<tag_error_detail, std::string>;

} // namespace app

// Throws an application exception with its fixed message (a string literal)
// and, in the second form, the number that belongs to it.
#define APP_THROW(ExceptionClass, text)                                                            \
    BOOST_THROW_EXCEPTION(ExceptionClass() << ::app::ErrorText(text))
#define APP_THROW_DATA(ExceptionClass, text, data)                                                 \
    BOOST_THROW_EXCEPTION(ExceptionClass() << ::app::ErrorText(text)                               \
                                           << ::app::ErrorData(static_cast<unsigned int>(data)))

#endif
