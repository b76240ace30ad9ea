#pragma once
// The commands of kesta-gentl. A command gets the loaded producer and its
// own arguments, prints to stdout (failures to stderr) and returns the
// process's exit status. Add one by writing its Run function in a file of
// its own and listing it in the table of main.cpp.
#include <string>
#include <vector>

#include "Producer.h"

namespace kesta::gentl {

using Arguments = std::vector<std::string>;

/// info: GCInitLib, every GCGetInfo answer by name, GCCloseLib.
int RunInfo(Producer& producer, const Arguments& arguments);

/**
 * list [--timeout MS]: every network interface and the cameras that answer
 * on it, with their facts (vendor, model, serial, MAC, IP, subnet, gateway,
 * version, user name, access status). Finding out the access status opens
 * and closes each camera.
 */
int RunList(Producer& producer, const Arguments& arguments);

/**
 * open [--device SERIAL|INDEX] [--access control|read-only|exclusive]
 *      [--timeout MS] [ACTION...]: opens one camera and runs the actions in
 * order (info, read-reg, write-reg, read-mem, write-mem, xml, wait), then
 * closes it. Without actions: info.
 */
int RunOpen(Producer& producer, const Arguments& arguments);

/**
 * grab [--device SERIAL|INDEX] [image, stream and output options]: opens
 * one camera with control, sets its image through its node map and the
 * stream's features through the stream's,
 * grabs images with a live progress line and prints a summary. Exit status
 * 0 when every image came whole, 3 when images were lost, 1 on a failure,
 * 2 on bad arguments.
 */
int RunGrab(Producer& producer, const Arguments& arguments);

/**
 * events [--device SERIAL|INDEX] [--seconds S] [--timeout MS]: opens one
 * camera with control, registers the remote-device event and prints each
 * event as it arrives (event id, block id, timestamp, data length), for S
 * seconds or until Ctrl-C; then the number of events.
 */
int RunEvents(Producer& producer, const Arguments& arguments);

/**
 * features [--module system|interface|device|stream|remote] [--device
 * SERIAL|INDEX] [--set NAME=VALUE[,...]] [--access ...] [--timeout MS]:
 * builds the module's node map with the GenApi engine over its port, sets
 * the features given in order, and prints every feature under Root with its
 * value, access and availability (see FeatureListing.h). The interface is
 * the camera's (or the first one), the device is opened for it; stream is
 * the camera's first stream, remote the camera itself. Exit status 1 when a
 * value could not be read or set.
 */
int RunFeatures(Producer& producer, const Arguments& arguments);

/**
 * action --device-key K --group-key G --group-mask M [--time T] [--target
 * IP]: writes the system module's action-command features and fires
 * ActionCommandFireCommand, which sends the command out of every network
 * interface that is up; to 255.255.255.255 unless --target says otherwise.
 */
int RunAction(Producer& producer, const Arguments& arguments);

} // namespace kesta::gentl
