// kesta-gentl: command-line consumer of the KESTA GenTL producer.
//
//   kesta-gentl [--cti PATH] <command> [arguments]
//
// The producer is PATH, or the GenTL_KESTA.cti found through
// GENICAM_GENTL64_PATH.

#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include "Commands.h"

namespace {

using kesta::gentl::Arguments;
using kesta::gentl::Producer;

struct Command {
    const char* name;
    const char* help;
    int (*run)(Producer&, const Arguments&);
};

const Command kCommands[] = {
    {"info", "print the producer's GCGetInfo answers", kesta::gentl::RunInfo},
    {"list", "[--timeout MS]  list interfaces and cameras with their facts", kesta::gentl::RunList},
    {"open",
     "[--device SERIAL|INDEX] [--access control|read-only|exclusive] [--timeout MS] [ACTION...]\n"
     "\topen one camera (the first by default, with control), run the actions, close it",
     kesta::gentl::RunOpen},
    {"grab",
     "[--device SERIAL|INDEX] [OPTION...]\n"
     "\topen one camera with control, set its image, grab images, print a summary",
     kesta::gentl::RunGrab},
    {"events",
     "[--device SERIAL|INDEX] [--seconds S] [--timeout MS]\n"
     "\topen one camera with control and print its events as they arrive, then their count\n"
     "\t(until Ctrl-C without --seconds)",
     kesta::gentl::RunEvents},
    {"features",
     "[--module system|interface|device|stream|remote] [--device SERIAL|INDEX]\n"
     "\t[--set NAME=VALUE[,...]]\n"
     "\tevery feature of a module's node map with its value, access and availability\n"
     "\t(the system's by default; remote is the camera's), after setting those given",
     kesta::gentl::RunFeatures},
    {"action",
     "--device-key K --group-key G --group-mask M [--time T] [--target IP]\n"
     "\tsend an action command out of every network interface (to 255.255.255.255)",
     kesta::gentl::RunAction},
};

void PrintUsage(std::ostream& out) {
    out << "usage: kesta-gentl [--cti PATH] <command> [arguments]\n\n"
           "The producer is PATH, or GenTL_KESTA.cti in one of the folders of\n"
           "GENICAM_GENTL64_PATH (colon-separated).\n\ncommands:\n";
    for (const Command& command : kCommands) {
        out << "  " << command.name << "\t" << command.help << "\n";
    }
    out << "\nactions of open:\n"
           "  info                      the camera's facts, its XML URL and manifest\n"
           "  read-reg ADDRESS          one 32-bit register (big-endian)\n"
           "  write-reg ADDRESS VALUE   write one register (needs control)\n"
           "  read-mem ADDRESS LENGTH   bytes of the camera's memory, as a hex dump\n"
           "  write-mem ADDRESS HEX     write bytes given in hexadecimal\n"
           "  xml [FILE]                save the camera's description from its URL\n"
           "                            (a zip archive is saved as it is)\n"
           "  wait MS                   keep the camera open (the heartbeat holds control)\n"
           "Addresses and values are decimal or 0x hexadecimal.\n\n"
           "options of grab:\n"
           "  --width N --height N      image size (camera features Width, Height)\n"
           "  --pixel-format NAME       an entry of PixelFormat, e.g. Mono8\n"
           "  --fps F                   AcquisitionFrameRate\n"
           "  --frames N | --seconds S  how long to grab (default 100 frames)\n"
           "  --wait MS                 give up after MS without an image (default 3000)\n"
           "  --stream 0|1              0: GVSP over UDP (default), 1: frames over TCP\n"
           "  --resend on|off           packet resend of stream 0 (default on)\n"
           "  --buffers N               buffers announced (default 8)\n"
           "  --handling-mode MODE      OldestFirst, OldestFirstOverwrite or NewestOnly\n"
           "  --packet-size auto|BYTES  the stream's search, or GevSCPSPacketSize\n"
           "  --save FILE               the first whole image as .png, .pgm or .ppm\n"
           "  --save-dir DIR            every whole image, as DIR/frame-ID.png\n"
           "  --format png|pgm          the form of --save-dir's pictures\n"
           "  --check stamp             compare every byte with the simulated camera's stamp\n"
           "  --set NAME=VALUE[,...]    any other camera feature: integer, float, boolean\n"
           "                            (on/off), enumeration entry, string or command\n"
           "  --stream-set NAME=VALUE[,...]  features of the stream, e.g.\n"
           "                            StreamMaxNumResendRequestsPerImage=50 (by default\n"
           "                            raised to 5 % of an image's packets)\n"
           "  --xml FILE                the camera's description from a file (XML or zip)\n"
           "Exit status of grab: 0 all images whole, 3 images lost, 1 failure.\n\n"
           "example, on a new network:\n"
           "  kesta-gentl list\n"
           "  kesta-gentl open --device SERIAL info xml camera.xml read-reg 0x0A00\n"
           "  kesta-gentl features --module remote --device SERIAL\n"
           "  kesta-gentl grab --device SERIAL --width 640 --height 480 --frames 50 \\\n"
           "      --save first.png\n"
           "  kesta-gentl events --device SERIAL --seconds 10\n";
}

} // namespace

int main(int argc, char** argv) {
    std::string ctiPath;
    int at = 1;
    for (; at < argc && argv[at][0] == '-'; ++at) {
        const std::string option = argv[at];
        if (option == "--help" || option == "-h") {
            PrintUsage(std::cout);
            return 0;
        }
        if (option == "--cti" && at + 1 < argc) {
            ctiPath = argv[++at];
        } else if (option.rfind("--cti=", 0) == 0) {
            ctiPath = option.substr(6);
        } else {
            std::cerr << "unknown option " << option << "\n";
            PrintUsage(std::cerr);
            return 2;
        }
    }
    if (at >= argc) {
        PrintUsage(std::cerr);
        return 2;
    }
    const std::string name = argv[at];
    const Arguments arguments(argv + at + 1, argv + argc);
    for (const Command& command : kCommands) {
        if (name != command.name) {
            continue;
        }
        try {
            Producer producer(kesta::gentl::FindProducer(ctiPath));
            return command.run(producer, arguments);
        } catch (const std::exception& e) {
            std::cerr << "kesta-gentl: " << e.what() << "\n";
            return 1;
        }
    }
    std::cerr << "unknown command " << name << "\n";
    PrintUsage(std::cerr);
    return 2;
}
