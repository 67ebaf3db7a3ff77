// pcsc-wait-card <seconds>: 0 once a "Virtual PCD" reader holds a card, 1 after the time runs out.

#include "host/pcsc/PcscContext.hpp"

#include <cstdlib>
#include <iostream>
#include <thread>

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 10;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    do {
        try { // a new context each time: pcscd may only be starting
            const host::PcscContext context;
            for (const std::string& reader : context.listReaders())
                if (reader.find("Virtual PCD") != std::string::npos &&
                    context.waitForCard(reader, std::chrono::milliseconds(0)))
                    return 0;
        } catch (...) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    } while (std::chrono::steady_clock::now() < deadline);
    std::cerr << "pcsc-wait-card: no card in a Virtual PCD reader after " << seconds << " s\n";
    return 1;
}
