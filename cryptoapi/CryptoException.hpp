#ifndef CRYPTOAPI_CRYPTOEXCEPTION_HPP
#define CRYPTOAPI_CRYPTOEXCEPTION_HPP

#include "mw/Exception.hpp"
#include "mw/Visibility.hpp"

namespace cryptoapi {

// Failures of the crypto provider. Like every foundation exception they carry
// the throw site; throw them with MW_THROW. An unknown algorithm name is not
// a failure: the lookups return null for it.
class MW_EXPORT_TYPE CryptoException : public mw::Exception {
public:
    using mw::Exception::Exception;
};

// Key material that cannot be an RSA public key (even modulus, exponent 0,
// 1 or even, sizes out of range).
class MW_EXPORT_TYPE InvalidKeySpecException : public CryptoException {
public:
    using CryptoException::CryptoException;
};

// A key of the wrong kind handed to a signature or cipher.
class MW_EXPORT_TYPE InvalidKeyException : public CryptoException {
public:
    using CryptoException::CryptoException;
};

// An operation called before the object was initialised for it.
class MW_EXPORT_TYPE IllegalStateException : public CryptoException {
public:
    using CryptoException::CryptoException;
};

// Input longer than one RSA block can carry.
class MW_EXPORT_TYPE IllegalBlockSizeException : public CryptoException {
public:
    using CryptoException::CryptoException;
};

// An operation the software provider does not offer (RSA deciphering: the
// private keys live on the card).
class MW_EXPORT_TYPE UnsupportedOperationException : public CryptoException {
public:
    using CryptoException::CryptoException;
};

} // namespace cryptoapi

#endif
