// SPDX-License-Identifier: MIT
// The message table: severity and text of each message number, from the built-in catalogue and catalogue files.
#pragma once

#include <cstdint>

#include "common/alert.h"
#include "common/vector_of.h"

inline constexpr std::uint32_t LANGUAGE_DEFAULT = 255;
inline constexpr std::uint32_t MESSAGE_NUMBER_MAX = 10000;

struct message_entry {
    message_type type = MESSAGE_ERROR;
    std::uint32_t number = 0;
    const char *text = nullptr;
    std::int32_t level = 0; // of a warning
};

// Indexed by message number, null where there is none; null before the first load. `message_table` decides types and
// levels, `message_texts` the texts.
extern vector_of<message_entry *> message_table;
extern vector_of<message_entry *> message_texts;
extern const char *message_file; // name of the catalogue in force

// Appends the paths of the catalogue files of a directory and returns how many there are.
std::uint32_t findMsgFiles(const char *directory, std::uint32_t language, vector_of<const char *> *files);
// The newest catalogue of the first search directory that holds any; the built-in one's name where that is newer.
const char *msg_filename(std::uint32_t language);
// The number in front of the file's name; 0 when there is none.
std::uint64_t getMsgFileVersion(const char *path);
// `--edf=`: false when the file cannot be used.
bool open_edf(const char *path);
// Makes a catalogue the one in force: the new table, or null, and nothing changed, when the file cannot be opened. The
// first one decides types and texts, a later one the texts only.
vector_of<message_entry *> message_load(const char *path);
// The first load of a run.
void catalogue_initialise();
