#ifndef TESTS_E2E_SAMPLEFILE_HPP
#define TESTS_E2E_SAMPLEFILE_HPP

#include "mw/ByteBuffer.hpp"

#include <fstream>
#include <string>

namespace hosttest {

// The bytes of a sample file of tests/data/samples: hex lines, '#' comments.
inline mw::ByteBuffer loadSample(const std::string& name) {
    std::ifstream file(std::string(P15_SAMPLES_DIR) + "/" + name);
    std::string line, hex;
    while (std::getline(file, line)) {
        if (!line.empty() && line[0] != '#') {
            hex += line;
        }
    }
    mw::ByteBuffer bytes(hex.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes.data()[i] = static_cast<unsigned char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

} // namespace hosttest

#endif
