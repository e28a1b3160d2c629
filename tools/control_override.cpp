#include "tools/control_override.h"

#include <stdlib.h>

#include <fstream>
#include <map>
#include <system_error>

#include "tools/tool_error.h"
#include "weights/control_file.h"

namespace ORVEL::TOOLS {

namespace fs = std::filesystem;

PrivateDirectory::PrivateDirectory() {
  std::error_code error;
  const fs::path base = fs::temp_directory_path(error);
  std::string pattern = ((error ? fs::path("/tmp") : base) / "orvel-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw ToolError(ExitCode::output, "cannot create a directory like '" + pattern + "'");
  }
  path_ = pattern;
}

PrivateDirectory::~PrivateDirectory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void writeOverridden(const fs::path& controlFile, const std::vector<Setting>& settings,
                     const fs::path& copy) {
  const auto entries = WEIGHTS::readControlFile(controlFile.string());
  if (!entries) {
    throw ToolError(ExitCode::model, controlFile.string() +
                                         ": cannot be read as a control file (KEY VALUE per line)");
  }
  std::map<std::string, std::string> overriding;
  for (const auto& [key, value] : settings)
    overriding[key] = value;

  std::ofstream out(copy);
  for (const auto& entry : *entries) {
    if (!overriding.contains(entry.key)) out << entry.key << ' ' << entry.value << '\n';
  }
  for (const auto& [key, value] : overriding)
    out << key << ' ' << value << '\n';
  out.close();
  if (!out) throw ToolError(ExitCode::output, copy.string() + ": cannot be written");
}

}  // namespace ORVEL::TOOLS
