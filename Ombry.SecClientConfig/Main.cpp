#include "Ombry.SecClientConfig/RunTool.h"
#include "Platform/Process.h"

int main(int argc, char** argv) {
    Ombry::Platform::HardenProcess();
    return Ombry::SecClientConfig::RunTool(argc, argv);
}
