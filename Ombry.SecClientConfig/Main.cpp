#include "Ombry.SecClientConfig/RunTool.h"
#include "Platform/Process.h"

int main(int argc, char** argv) {
    Ombry::Platform::HardenProcess();
    Ombry::Platform::TakeArguments(argc, argv);
    return Ombry::SecClientConfig::RunTool(argc, argv);
}
