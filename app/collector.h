#pragma once

// One collection run from start to end; returns the process exit status.
int RunCollector();
