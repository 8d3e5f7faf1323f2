#pragma once

#include <CLI/CLI.hpp>

// Each sub-command adds itself to the app; its callback leaves its exit code in `exitCode`.
void AddDumpCommand(CLI::App& app, int& exitCode);
void AddConvertCommand(CLI::App& app, int& exitCode);
void AddNameCommand(CLI::App& app, int& exitCode);
void AddEchoCommand(CLI::App& app, int& exitCode);
void AddServeCommand(CLI::App& app, int& exitCode);
void AddSendCommand(CLI::App& app, int& exitCode);
void AddDbCommand(CLI::App& app, int& exitCode);
void AddDicomdirCommand(CLI::App& app, int& exitCode);
void AddWorklistCommand(CLI::App& app, int& exitCode);
void AddPrinterCommand(CLI::App& app, int& exitCode);
void AddPrintCommand(CLI::App& app, int& exitCode);
void AddImportCommand(CLI::App& app, int& exitCode);
void AddFindCommand(CLI::App& app, int& exitCode);
void AddMoveCommand(CLI::App& app, int& exitCode);
