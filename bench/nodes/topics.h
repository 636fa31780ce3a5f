#pragma once

#include "bench/report.h"

// One function a topic, each in a file of its own.
void measure_curves(bench::Report& report);
void measure_transforms(bench::Report& report);
void measure_texts(bench::Report& report);
void measure_colors(bench::Report& report);
