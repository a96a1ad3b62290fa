// Notices that every client of the server process has died. COM ends the server through its
// clients' releases, and on Windows it also releases the references of a client process that
// died without releasing them. Wine 8.0 does not: the objects of a killed host stay
// referenced, and the server would run for ever, keeping whatever transaction and file lock
// that host had. Under Wine each client connection to the server is served by a thread of
// the RPC runtime named "wine_rpcrt4_io", which ends with the connection: a server that had
// such threads and then has none for a few observations in a row, while its objects are still
// referenced, has no client left that could ever reach them.
#pragma once

namespace zel {

class ClientWatch {
public:
    // Observations without a connection, after one was seen, before the clients count as gone.
    static constexpr unsigned kQuietObservations = 3;
    // Observations without a connection when none was ever seen, for a watch that judges that
    // case too: a client that died during its activation, after its object was made, leaves a
    // server whose objects no connection ever reached.
    static constexpr unsigned kUnseenObservations = 5;

    // `judgeUnseen`: also count the clients as gone when no connection was ever seen (only
    // where the connection threads are known to be visible, ConnectionThreadsAreVisible()).
    explicit ClientWatch(bool judgeUnseen = false) noexcept : m_judgeUnseen(judgeUnseen) {}
    // How often the server observes, in milliseconds.
    static constexpr unsigned long kInterval = 1000;

    // Notes a connection seen between observations (a client that made an object and died
    // before the next observation still counts).
    void NoteConnection() noexcept { m_seen = true; }
    // Takes one observation of the number of client connections; true when the clients are
    // gone. Until a connection has been seen it answers true only for a watch that judges
    // that case (so a platform without those threads, Windows included, is never misjudged).
    bool Observe(unsigned connections) noexcept;

private:
    bool m_judgeUnseen;
    bool m_seen = false;
    unsigned m_quiet = 0;
};

// The number of Wine RPC connection threads in this process; 0 where there are none.
unsigned CountClientConnections() noexcept;
// Whether this platform names its client connection threads, so that a count of 0 means no
// client (true under Wine).
bool ConnectionThreadsAreVisible() noexcept;

}  // namespace zel
