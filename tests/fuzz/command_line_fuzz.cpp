// Command lines, any bytes: one that is accepted says exactly what runs; quoted word by word it is
// the same command again.
#include "command_line.h"

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string problem;
    const auto command = nv::parseCommandLine(textOf(data, size), problem);
    require(command.has_value() == problem.empty());
    if (!command) return 0;
    require(!command->words.empty());
    require(!command->errorsToOutput || !command->outputFile.empty());

    std::string line;
    for (const std::string& word : command->words) line += '"' + word + "\" ";
    if (!command->outputFile.empty()) line += ">> \"" + command->outputFile + '"';
    if (command->errorsToOutput) line += " 2>&1";
    const auto again = nv::parseCommandLine(line, problem);
    require(again && again->words == command->words);
    require(again->outputFile == command->outputFile);
    require(again->errorsToOutput == command->errorsToOutput);
    return 0;
}
