// The host's commands: each returns the process exit code.
#pragma once

#include <string>
#include <vector>

class FrameworkHost;

int ProbeCommand(FrameworkHost& host, const std::vector<std::string>& args);
int RecordCommand(FrameworkHost& host, const std::vector<std::string>& args);
int PlayCommand(FrameworkHost& host, const std::vector<std::string>& args);
int ReplayCommand(FrameworkHost& host, const std::vector<std::string>& args);
int WatchCommand(FrameworkHost& host, const std::vector<std::string>& args);
int StackCommand(FrameworkHost& host, const std::vector<std::string>& args);
int ViewCommand(FrameworkHost& host, const std::vector<std::string>& args);
int SheetCommand(FrameworkHost& host, const std::vector<std::string>& args);
