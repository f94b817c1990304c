// The socket that a server of port 8001 begins with.
#pragma once

// Ends the program with status 1 when there is none to be had.
int listening_socket();
