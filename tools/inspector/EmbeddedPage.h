#pragma once

#include <string_view>
#include <vector>

/// A file of the page, which the build puts into the program.
struct PageFile {
  std::string_view name;
  std::string_view content;
};

const std::vector<PageFile>& pageFiles();
