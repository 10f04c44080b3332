// What the pages show as code is what the samples say, which are compiled.
#include <filesystem>
#include <set>

#include "docs/Page.h"
#include "harness/test.h"

namespace docs {
namespace {

std::vector<std::string> pages() {
    std::vector<std::string> found = {"README.md"};
    for (const auto& each : std::filesystem::directory_iterator(QZ_SOURCE_DIR "/docs")) {
        if (each.path().extension() == ".md")
            found.push_back("docs/" + each.path().filename().string());
    }
    return found;
}

TEST(Pages, CodeIsPartOfASample) {
    const std::set<std::string> code = {"c", "cpp", "c++", "cmake"};
    int shown = 0;
    for (const std::string& name : pages()) {
        const Page page(name);
        for (const Block& block : page.blocks()) {
            const bool isSample = block.comment.compare(0, 5, "docs/") == 0;
            SCOPED_TRACE(name + ", line " + std::to_string(block.line));
            EXPECT_TRUE(isSample || code.count(block.language) == 0) << "shown from no sample";
            if (!isSample) continue;
            ++shown;
            EXPECT_NE(("\n" + readSource(block.comment)).find("\n" + block.text), std::string::npos)
                << block.comment << " doesn't say this";
        }
    }
    EXPECT_GE(shown, 5) << "the comments in front of the fences aren't found";
}

}  // namespace
}  // namespace docs
