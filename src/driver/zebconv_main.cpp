#include <cstdlib>

#include "driver/driver.h"

int main(int argc, char* argv[]) { std::exit(RunConversion(argc, argv)); }
