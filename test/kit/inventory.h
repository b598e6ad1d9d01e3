// What the machine has of the things that tests make, so that they can be taken
// away again. What anybody else makes meanwhile is not looked at.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace kova::test {

// One thing each: its kind, " | " and its name.
using Inventory = std::set<std::wstring>;

// Printers and drivers of the tests' names, the server's event sources and
// settings, its log files and dumps, the message library.
[[nodiscard]] Inventory TakeInventory();

// What only a machine has that the server was installed on, or runs on; nobody
// may test there.
[[nodiscard]] std::vector<std::wstring> SignsOfProduction();

// What stands in `left` and not in `right`.
[[nodiscard]] std::vector<std::wstring> Without(const Inventory& left,
                                                const Inventory& right);

// Takes away whatever was not there `before`. What could not be taken away and
// what has gone since is returned, in words.
[[nodiscard]] std::vector<std::wstring> Restore(const Inventory& before);

// As UTF-8, one a line. The file is there whole, or it is not there and the
// answer false.
[[nodiscard]] bool Save(const Inventory& inventory,
                        const std::filesystem::path& file);
[[nodiscard]] Inventory Load(const std::filesystem::path& file);

}  // namespace kova::test
