// gev-camera-sim: one or more simulated GigE Vision cameras, each on its own
// address, until SIGTERM or SIGINT.
#include "Camera.h"
#include "CommandLine.h"
#include "Log.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <vector>

int main(int argc, char** argv) {
    using namespace gevsim;
    SimConfig config;
    CommandLine commandLine;
    if (!commandLine.parse(argc, argv, config)) {
        if (commandLine.helpRequested()) {
            std::fputs(CommandLine::usage().c_str(), stdout);
            return 0;
        }
        std::fprintf(stderr, "gev-camera-sim: %s\n%s", commandLine.error().c_str(),
                     CommandLine::usage().c_str());
        return 2;
    }
    Log::setVerbosity(config.verbosity);

    // Signals are taken by sigwait below, never by a worker thread.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    std::vector<std::unique_ptr<Camera>> cameras;
    for (const CameraIdentity& identity : config.cameras) {
        cameras.push_back(std::make_unique<Camera>(config, identity));
        std::string error;
        if (!cameras.back()->start(error)) {
            Log::write(0, identity.serial, "start failed: " + error);
            return 1;
        }
    }
    if (!config.readyFile.empty()) {
        std::ofstream ready(config.readyFile);
        ready << "ready\n";
    }
    Log::write(1, "main", std::to_string(cameras.size()) + " camera(s) running");

    int signal = 0;
    sigwait(&signals, &signal);
    Log::write(1, "main", std::string("stopping on ") + (signal == SIGTERM ? "SIGTERM" : "SIGINT"));
    for (auto& camera : cameras)
        camera->stop();
    return 0;
}
