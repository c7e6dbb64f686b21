#include "console_logger.h"

#include <iostream>
#include <string>

void ConsoleLogger::DoOutput(const char* line) { std::cerr << std::string(line) + '\n'; }
