#include "app/collector.h"

int main()
{
    return RunCollector();
}
