#include "text/table.h"

#include <algorithm>

#include "text/printable.h"
#include "text/units.h"

namespace dorvo::agent {

std::string tableText(const std::vector<std::string>& headings,
                      const std::vector<std::vector<std::string>>& rows) {
    constexpr size_t gap = 2;
    std::vector<std::vector<std::string>> lines = {headings};
    lines.insert(lines.end(), rows.begin(), rows.end());
    std::vector<size_t> widths(headings.size(), 0);
    for (auto& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            line[i] = printable(line[i]);
            widths.at(i) = std::max(widths.at(i), columnsOf(line[i]));
        }
    }
    std::string text;
    for (const auto& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            text += line[i];
            if (i + 1 < line.size()) {
                text.append(widths[i] - columnsOf(line[i]) + gap, ' ');
            }
        }
        text += '\n';
    }
    return text;
}

}  // namespace dorvo::agent
