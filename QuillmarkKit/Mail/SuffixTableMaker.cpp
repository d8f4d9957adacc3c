// Runs when the library is built: prints the table of the list that is built in, as C++, so that no start has
// to read the list.

#include <fstream>
#include <iostream>
#include <sstream>

#include "QuillmarkKit/Mail/SuffixTable.h"

int main(int count, char** arguments) {
    std::ifstream file(count == 2 ? arguments[1] : "", std::ios::binary);
    std::ostringstream text;
    if (!(text << file.rdbuf())) return 1;
    const quillmark::SuffixTable table(text.str());
    std::cout << "constexpr std::size_t ruleCount = " << table.ruleCount()
              << ", mostLabels = " << table.mostLabels() << ";\nconstexpr SuffixTable::Slot slots["
              << table.slots().size() << "] = {\n";
    for (const auto& slot : table.slots())
        std::cout << '{' << slot.begin << ',' << slot.length << ',' << slot.kinds << "},\n";
    std::cout << "};\n";
    return std::cout.flush() ? 0 : 1;
}
