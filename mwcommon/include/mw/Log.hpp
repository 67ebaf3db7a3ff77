#ifndef MW_LOG_HPP
#define MW_LOG_HPP

#include <memory>
#include <string>
#include <typeinfo>

namespace mw {

// Trace scope of one operation: constructed on entry, closed by the
// destructor (also while an exception passes). The back end (library p15log)
// writes nothing unless the environment variable P15_TRACE names "stderr" or
// a file; while tracing is off a scope costs one test of a flag.
//
// A trace records only the operation's name, the object's type and the
// output values added here. Callers must never pass secrets (PIN values,
// key material, key references in transit) as an output value; for that
// reason the scope takes no input parameters at all.
class Log {
public:
    Log(const std::type_info& type, const char* operation);
    Log(const std::type_info& type, const std::string& operation);
    ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    void addParamOut(const std::string& name, const std::string& value);
    // Keeps a string literal from choosing the bool overload.
    void addParamOut(const std::string& name, const char* value);
    void addParamOut(const std::string& name, bool value);

private:
    class Scope;
    static std::unique_ptr<Scope> open(const std::type_info& type, const char* operation);
    std::unique_ptr<Scope> scope_;
};

} // namespace mw

#endif
