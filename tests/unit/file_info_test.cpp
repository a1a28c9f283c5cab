#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/file_info.hpp"

namespace fs = std::filesystem;

// The reader keeps a few directories open: whatever the order of the files asked for, each
// answer must be the file's own, as a plain file-status call gives it.
TEST(SignatureReader, AnswersAsFileSignatureInAnyOrder) {
    char pattern[] = "/tmp/orvane-sig-XXXXXX";
    const fs::path root = ::mkdtemp(pattern);
    std::vector<std::string> paths;
    for (int d = 0; d < 12; ++d) {
        const fs::path dir = root / ("d" + std::to_string(d));
        fs::create_directory(dir);
        std::ofstream(dir / "f") << std::string(static_cast<std::size_t>(d + 1), 'x');
        paths.push_back((dir / "f").string());
    }
    fs::create_directory(root / "d3" / "sub");
    paths.insert(paths.end(), {(root / "gone" / "f").string(), (root / "d2" / "none").string(),
                               (root / "d3" / "sub").string(), (root / "d3" / "sub" / "").string(),
                               (root / "d4" / "f" / "x").string(), "relative-and-missing"});
    std::vector<std::size_t> order;
    for (std::size_t round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < paths.size(); ++i)
            order.push_back((i * (round + 5)) % paths.size());
    }
    platform::SignatureReader reader;
    for (const std::size_t i : order) {
        SCOPED_TRACE(paths[i]);
        EXPECT_EQ(reader.read(paths[i]), platform::file_signature(paths[i]));
    }
    EXPECT_EQ(reader.read(paths[7])->size, 8);
    fs::remove_all(root);
}
