// A crash reporter without a user interface, and under another name a crash processor: writes its arguments, one a line
// behind its number, to the file "<its name>.txt" in the folder that SAMPLE_OUTPUT names. The file appears whole.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
  const char* folder = std::getenv("SAMPLE_OUTPUT");
  if (folder == nullptr) return 2;
  const std::filesystem::path output =
      std::filesystem::path(folder) / (std::filesystem::path(argv[0]).filename() += ".txt");
  const std::string inTheMaking = output.string() + ".new";
  std::ofstream file(inTheMaking);
  for (int number = 1; number < argc; ++number) file << number << ' ' << argv[number] << '\n';
  file.close();
  return file && std::rename(inTheMaking.c_str(), output.c_str()) == 0 ? 0 : 1;
}
