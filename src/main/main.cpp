#include "startup.h"

int main() { jobm::runService(); }
