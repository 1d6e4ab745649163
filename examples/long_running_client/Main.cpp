#include "LongRunningClient.h"

int main(int argc, char** argv) {
    return Example::RunLongRunningClient(argc, argv);
}
