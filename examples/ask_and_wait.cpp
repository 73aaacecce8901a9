// Sends requests and prints their answer lines.
//
//     ask_and_wait network:127.0.0.1:5000 "" "MOV 5" "POS?"

#include <chrono>
#include <iostream>
#include <quorvio/quorvio.hpp>
#include <string>

int main(int argc, char** argv) try {
  if (argc < 4) {
    std::cerr << "usage: ask_and_wait LOCATOR OPTIONS COMMAND...\n";
    return 2;
  }
  const quorvio::Channel device(argv[1], quorvio::Options::fromLines(argv[2]));
  for (int i = 3; i < argc; ++i)
    std::cout << device.query(std::string(argv[i]) + "\n", "\n", std::chrono::seconds(1)) << '\n';
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
