// tarvel-sim as a process of its own, so that its memory and threads are
// not the soak's: started with the given options, asked for the terminal it
// serves, stopped with SIGTERM (SIGKILL if it does not end).
#ifndef TARVEL_SOAK_SIM_PROCESS_H
#define TARVEL_SOAK_SIM_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace soak {

class SimProcess {
public:
    SimProcess() = default;
    ~SimProcess() { stop(); }
    SimProcess(const SimProcess&) = delete;
    SimProcess& operator=(const SimProcess&) = delete;

    // Starts `program` with `arguments`; its standard error goes to
    // `errorFile`. False (and `error` says why) when it does not say within
    // 10 s which terminal it serves.
    bool start(const std::string& program, const std::vector<std::string>& arguments, const std::string& errorFile,
               std::string& error);
    const std::string& portPath() const { return m_portPath; }
    // Still running (it has not died on its own).
    bool running();
    // Ends it (if it still runs): its status as waitpid gives it, -1 when it never ran.
    int stop();

private:
    pid_t m_pid = -1;
    int m_status = -1;
    int m_output = -1; // read end of its standard output
    std::string m_portPath;
};

} // namespace soak

#endif
