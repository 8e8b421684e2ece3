// Columns of text. Pure.
#pragma once

#include <string>
#include <vector>

namespace dorvo::agent {

// The rows under their headings, a line each; every column but the last is as wide as its widest
// cell.
std::string tableText(const std::vector<std::string>& headings,
                      const std::vector<std::vector<std::string>>& rows);

}  // namespace dorvo::agent
