#include "main/startup.h"

int main() { jobm::runService({}); }
