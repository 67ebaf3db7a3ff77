"""The module under python3-pykcs11: a wrong PIN and the tries-left flag,
then a login and a CKM_SHA256_RSA_PKCS signature, left in WORKDIR as
message and signature for openssl to check. Usage: pykcs11-test.py MODULE WORKDIR"""
import sys

import PyKCS11
from PyKCS11.LowLevel import CKF_USER_PIN_COUNT_LOW, CKR_PIN_INCORRECT

module, work = sys.argv[1], sys.argv[2]
pkcs11 = PyKCS11.PyKCS11Lib()
pkcs11.load(module)
slot = pkcs11.getSlotList(tokenPresent=True)[0]
session = pkcs11.openSession(slot, PyKCS11.CKF_SERIAL_SESSION | PyKCS11.CKF_RW_SESSION)

try:
    session.login("000000")
    sys.exit("a wrong PIN was accepted")
except PyKCS11.PyKCS11Error as error:
    if error.value != CKR_PIN_INCORRECT:
        sys.exit(f"a wrong PIN gave {error}, not CKR_PIN_INCORRECT")
if not pkcs11.getTokenInfo(slot).flags & CKF_USER_PIN_COUNT_LOW:
    sys.exit("no CKF_USER_PIN_COUNT_LOW after a wrong PIN")

session.login("123456")
if pkcs11.getTokenInfo(slot).flags & CKF_USER_PIN_COUNT_LOW:
    sys.exit("CKF_USER_PIN_COUNT_LOW stays after the right PIN")
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
