#include "service/run_service.h"

int main() {
    return runService();
}
