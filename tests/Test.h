#pragma once

// What nearly every test needs; compiled once for all of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "QuillmarkKit/Support/Text.h"
#include "tests/TestFiles.h"
#include "tests/TestSigner.h"

namespace quillmark::test {

/// The words of a text, between blanks and line ends.
inline std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> list;
    for (auto word = takeWord(text, " \n"); !word.empty(); word = takeWord(text, " \n"))
        list.emplace_back(word);
    return list;
}

}  // namespace quillmark::test
