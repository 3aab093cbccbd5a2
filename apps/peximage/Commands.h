#pragma once

#include <CLI/CLI.hpp>

/// Each adds its subcommand to the program; when it was asked for, its exit status is stored in `status`.
void addInfo(CLI::App& program, int& status);
void addShrink(CLI::App& program, int& status);
void addConvert(CLI::App& program, int& status);
void addResize(CLI::App& program, int& status);
void addComposer(CLI::App& program, int& status);
void addCrop(CLI::App& program, int& status);
void addRotate(CLI::App& program, int& status);
void addSplit(CLI::App& program, int& status);
void addJoin(CLI::App& program, int& status);
void addWatermark(CLI::App& program, int& status);
void addKey(CLI::App& program, int& status);
void addMask(CLI::App& program, int& status);
void addColors(CLI::App& program, int& status);
void addExif(CLI::App& program, int& status);
void addFilter(CLI::App& program, int& status);
void addCache(CLI::App& program, int& status);
void addFetch(CLI::App& program, int& status);
void addView(CLI::App& program, int& status);
void addPdf(CLI::App& program, int& status);
void addCanvas(CLI::App& program, int& status);
