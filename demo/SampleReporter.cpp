// A crash reporter without a user interface: writes its arguments, one a line behind its number, to the file that
// SAMPLE_REPORTER_OUTPUT names. The file appears whole.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
  const char* output = std::getenv("SAMPLE_REPORTER_OUTPUT");
  if (output == nullptr) return 2;
  const std::string inTheMaking = std::string(output) + ".new";
  std::ofstream file(inTheMaking);
  for (int number = 1; number < argc; ++number) file << number << ' ' << argv[number] << '\n';
  file.close();
  return file && std::rename(inTheMaking.c_str(), output) == 0 ? 0 : 1;
}
