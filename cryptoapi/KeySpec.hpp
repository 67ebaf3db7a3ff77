#ifndef CRYPTOAPI_KEYSPEC_HPP
#define CRYPTOAPI_KEYSPEC_HPP

namespace cryptoapi {

// Key material as plain values, turned into a key by a KeyFactory.
class KeySpec {
public:
    virtual ~KeySpec() = default;

protected:
    KeySpec() = default;
    KeySpec(const KeySpec&) = default;
    KeySpec& operator=(const KeySpec&) = default;
};

} // namespace cryptoapi

#endif
