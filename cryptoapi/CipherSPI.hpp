#ifndef CRYPTOAPI_CIPHERSPI_HPP
#define CRYPTOAPI_CIPHERSPI_HPP

namespace cryptoapi {

// What a cipher is initialised for. Cipher derives from it, so
// Cipher::ENCRYPT_MODE names the same value.
class CipherSPI {
public:
    enum OpMode { ENCRYPT_MODE = 1, DECRYPT_MODE = 2 };

protected:
    CipherSPI() = default;
    ~CipherSPI() = default;
};

} // namespace cryptoapi

#endif
