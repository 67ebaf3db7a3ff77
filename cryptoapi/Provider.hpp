#ifndef CRYPTOAPI_PROVIDER_HPP
#define CRYPTOAPI_PROVIDER_HPP

namespace cryptoapi {

// The name of the one provider behind every getInstance. A lookup may name
// it, or pass no provider (null or ""); any other provider name yields null.
extern const char* const providerName;

} // namespace cryptoapi

#endif
