// The server's command-line switches.
#pragma once

namespace zel {

enum class ServerAction { Run, RegServer, UnregServer, RegServerPerUser, UnregServerPerUser };

// The first switch of the command line decides: a word after "-" or "/", compared without
// regard to case and followed by a space, a tab or the end of the line. Anything else
// (-Embedding included) runs the server.
ServerAction ParseCommandLine(const wchar_t* commandLine);

// Whether COM started the process for an activation: its command line has the switch
// "Embedding" (matched like the others). Such a server ends by itself when no client comes.
bool IsStartedForCom(const wchar_t* commandLine);

}  // namespace zel
