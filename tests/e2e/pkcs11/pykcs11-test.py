"""The module under python3-pykcs11: a login and a CKM_SHA256_RSA_PKCS
signature, left in WORKDIR as message and signature for openssl to check.
Usage: pykcs11-test.py MODULE WORKDIR"""
import sys

import PyKCS11

module, work = sys.argv[1], sys.argv[2]
pkcs11 = PyKCS11.PyKCS11Lib()
pkcs11.load(module)
slot = pkcs11.getSlotList(tokenPresent=True)[0]
session = pkcs11.openSession(slot, PyKCS11.CKF_SERIAL_SESSION | PyKCS11.CKF_RW_SESSION)

session.login("123456")
keys = session.findObjects([(PyKCS11.CKA_CLASS, PyKCS11.CKO_PRIVATE_KEY)])
if len(keys) != 1:
    sys.exit(f"{len(keys)} private keys after login, expected 1")
message = b"signed through PKCS#11 by a PKCS#15 card\n" * 100
signature = session.sign(keys[0], message, PyKCS11.Mechanism(PyKCS11.CKM_SHA256_RSA_PKCS))
with open(f"{work}/message", "wb") as out:
    out.write(message)
with open(f"{work}/signature", "wb") as out:
    out.write(bytes(signature))
session.logout()
session.closeSession()
