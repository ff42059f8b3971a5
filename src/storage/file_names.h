// What the engine's files are called: the only place that knows.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

inline constexpr const char* logFileName = "velmora.wal";
inline constexpr const char* markerFileName = "velmora.ckpt";
inline constexpr const char* manifestFileName = "velmora.manifest";
inline constexpr const char* listenersFileName = "listeners.bin";
inline constexpr const char* webhooksFileName = "webhooks.bin";

inline constexpr std::string_view tableExtension = ".bin";
inline constexpr std::string_view deletionExtension = ".del";
inline constexpr std::string_view wholeRowExtension = ".row";
inline constexpr std::string_view timedExtension = ".tmp";
inline constexpr std::string_view exactExtension = ".exact";
inline constexpr std::string_view relationExtension = ".rel";

// A checkpoint's new file waits under its name and this for the checkpoint's marker.
inline constexpr std::string_view checkpointSuffix = ".checkpoint";
// What a checkpoint has taken the place of: the next new file of the name is written over it.
inline constexpr std::string_view spareSuffix = ".spare";
// A file that is being made is called so until it is whole. Starts sweep away what is left of it.
inline constexpr std::string_view unfinishedSuffix = ".unfinished";

inline std::string fileNameOf(std::string_view tableName, std::string_view extension) {
  return std::string(tableName).append(extension);
}
inline std::string checkpointName(std::string_view fileName) {
  return std::string(fileName).append(checkpointSuffix);
}
inline std::string spareName(std::string_view fileName) {
  return std::string(fileName).append(spareSuffix);
}
inline std::string unfinishedName(std::string_view fileName) {
  return std::string(fileName).append(unfinishedSuffix);
}

}  // namespace velmora
