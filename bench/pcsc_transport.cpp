// The PC/SC transport's own cost over pcscd: wall time per APDU through
// host::PcscTransport outside and inside a held transaction, beside bare
// pcsc-lite loops doing the same (SCardTransmit alone, and wrapped in its
// own SCardBeginTransaction/SCardEndTransaction), and a signature through
// the PKCS#11 module (C_SignInit and C_Sign, SHA-256 with RSA 2048) in one
// session, 100 of them. The card is the virtual one in pcscd's
// "Virtual PCD" reader: `ctest -C bench -R bench.pcsc_transport -V`
// starts pcscd and the card and runs this; without that reader it measures
// nothing and says so.
#include "card/Apdu.hpp"
#include "host/pcsc/PcscTransport.hpp"
#include "pkcs11/Cryptoki.hpp"

#include <PCSC/pcsclite.h>
#include <PCSC/winscard.h>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <dlfcn.h>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const std::string readerName = "Virtual PCD";
// SELECT of the MF, no answer data: the least the card does for a command.
const mw::ByteBuffer selectMf{0x00, 0xA4, 0x00, 0x0C, 0x02, 0x3F, 0x00};

std::unique_ptr<host::PcscTransport> transport;

// Bare pcsc-lite on a connection of its own.
struct Bare {
    SCARDCONTEXT context = 0;
    SCARDHANDLE card = 0;
    DWORD protocol = 0;

    Bare() {
        SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context);
        SCardConnect(context, transport->reader().c_str(), SCARD_SHARE_SHARED,
                     SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card, &protocol);
    }
    ~Bare() {
        SCardDisconnect(card, SCARD_LEAVE_CARD);
        SCardReleaseContext(context);
    }
    void transmit(benchmark::State& state) const {
        BYTE answer[258];
        DWORD length = sizeof answer;
        if (SCardTransmit(card, protocol == SCARD_PROTOCOL_T0 ? SCARD_PCI_T0 : SCARD_PCI_T1,
                          selectMf.data(), static_cast<DWORD>(selectMf.size()), nullptr, answer,
                          &length) != SCARD_S_SUCCESS) {
            state.SkipWithError("SCardTransmit failed");
        }
    }
};

void bareTransmit(benchmark::State& state) {
    const Bare bare;
    for (auto _ : state) {
        bare.transmit(state);
    }
}

void bareTransmitInOwnTransaction(benchmark::State& state) {
    const Bare bare;
    for (auto _ : state) {
        SCardBeginTransaction(bare.card);
        bare.transmit(state);
        SCardEndTransaction(bare.card, SCARD_LEAVE_CARD);
    }
}

void transportOutsideTransaction(benchmark::State& state) {
    const card::Apdu command(selectMf);
    for (auto _ : state) {
        benchmark::DoNotOptimize(transport->transmit(command));
    }
}

void transportInsideTransaction(benchmark::State& state) {
    const card::Apdu command(selectMf);
    transport->beginTransaction();
    for (auto _ : state) {
        benchmark::DoNotOptimize(transport->transmit(command));
    }
    transport->endTransaction();
}

// The module's slot for the reader, a session logged in as the user and a
// fresh RSA 2048 key pair: what each C_Sign of the benchmark uses.
struct SigningSession {
    CK_FUNCTION_LIST_PTR f = nullptr;
    CK_SESSION_HANDLE session = 0;
    CK_OBJECT_HANDLE key = 0;

    SigningSession() {
        setenv("P15KIT_PKCS11_CARD", "", 1); // the readers alone, no card images
        // Another build's module, to compare: P15_BENCH_PKCS11_MODULE.
        const char* path = std::getenv("P15_BENCH_PKCS11_MODULE");
        path = path ? path : MODULE_PATH;
        void* module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        auto getList =
            module ? reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"))
                   : nullptr;
        if (!getList || getList(&f) != CKR_OK || f->C_Initialize(nullptr) != CKR_OK) {
            throw std::runtime_error(std::string("cannot load ") + path);
        }
        CK_SLOT_ID slots[16];
        CK_ULONG count = 16;
        CK_SLOT_INFO info{};
        require(f->C_GetSlotList(CK_TRUE, slots, &count), "C_GetSlotList");
        for (CK_ULONG i = 0; i < count && !session; ++i) {
            if (f->C_GetSlotInfo(slots[i], &info) == CKR_OK &&
                std::string(reinterpret_cast<char*>(info.slotDescription), 64).find(readerName) !=
                    std::string::npos) {
                require(f->C_OpenSession(slots[i], CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                                         nullptr, &session),
                        "C_OpenSession");
            }
        }
        std::string pin = "123456"; // the pcscd fixture's card has the default user PIN
        require(f->C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()),
                           pin.size()),
                "C_Login");
        CK_MECHANISM generate{CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
        CK_ULONG bits = 2048;
        CK_ATTRIBUTE publicTemplate{CKA_MODULUS_BITS, &bits, sizeof bits};
        CK_OBJECT_HANDLE publicKey = 0;
        require(f->C_GenerateKeyPair(session, &generate, &publicTemplate, 1, nullptr, 0, &publicKey,
                                     &key),
                "C_GenerateKeyPair");
    }
    ~SigningSession() { f->C_Finalize(nullptr); }
    static void require(CK_RV rv, const char* call) {
        if (rv != CKR_OK) {
            throw std::runtime_error(std::string(call) + " returned " + std::to_string(rv));
        }
    }
};

void pkcs11Sign(benchmark::State& state) {
    // One key pair per run, whatever the repetitions: the card's room is finite.
    static std::unique_ptr<SigningSession> session;
    try {
        if (!session) {
            session = std::make_unique<SigningSession>();
        }
    } catch (const std::exception& e) {
        state.SkipWithError(e.what());
        return;
    }
    const SigningSession& signing = *session;
    CK_MECHANISM sha256{CKM_SHA256_RSA_PKCS, nullptr, 0};
    std::vector<CK_BYTE> message(1000, 0x5A), signature(256);
    for (auto _ : state) {
        CK_ULONG length = signature.size();
        if (signing.f->C_SignInit(signing.session, &sha256, signing.key) != CKR_OK ||
            signing.f->C_Sign(signing.session, message.data(), message.size(), signature.data(),
                              &length) != CKR_OK) {
            state.SkipWithError("C_Sign failed");
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        transport =
            host::connectReader(readerName, std::chrono::seconds(2), host::OnRelease::KeepLogin);
    } catch (const std::exception& e) {
        std::cout << "bench_pcsc_transport: " << e.what()
                  << ", nothing measured (ctest -C bench -R bench.pcsc_transport runs it on pcscd)"
                  << std::endl;
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RegisterBenchmark("bare SCardTransmit", bareTransmit)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("bare SCardTransmit in its own transaction",
                                 bareTransmitInOwnTransaction)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("PcscTransport::transmit outside a transaction",
                                 transportOutsideTransaction)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("PcscTransport::transmit inside a held transaction",
                                 transportInsideTransaction)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("PKCS#11 C_SignInit+C_Sign, one session", pkcs11Sign)
        ->Iterations(100)
        ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    transport.reset();
    benchmark::Shutdown();
    return 0;
}
