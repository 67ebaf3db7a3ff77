#ifndef PKCS11_CRYPTOKI_HPP
#define PKCS11_CRYPTOKI_HPP

// The PKCS#11 v2.40 types and constants, from the standard header that the
// system's p11-kit development package provides.
#include <p11-kit/pkcs11.h>

#endif
