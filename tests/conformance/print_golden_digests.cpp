// Prints the list of test-data/golden_digests.txt as this build makes it.
#include <iostream>

#include "support/golden_streams.h"

int main() {
    std::cout << "stream sha256\n";
    for (const auto &golden : tavik_test::golden_streams()) {
        std::cout << golden.name << ' ' << tavik_test::golden_digest(golden) << '\n';
    }
}
