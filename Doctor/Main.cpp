#include "Doctor/RunDoctor.h"
#include "Platform/Process.h"

#include <iostream>

int main(int argc, char** argv) {
    Ombry::Platform::HardenProcess();
    Ombry::Platform::TakeArguments(argc, argv);
    return Ombry::Doctor::RunDoctor(argc, argv, std::cout, std::cerr);
}
