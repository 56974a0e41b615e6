#pragma once

namespace sonivo {

/// The log of the third chain as a text file that the environment asks for; it takes the hook of the log.
/// AI_SPEECH_ENHANCE_LOG_LEVEL: messages of levels up to this number are written; 0, no number or unset: none are.
/// AI_SPEECH_ENHANCE_LOG_DIR: folder of "AISpeechEnhance_<local time>.log"; unset: the current one.
/// No lock is taken, so that lines of two threads may change places.
///
/// Opens the file if it is asked for; one that can't be made leaves the log as it is. An open one is closed first.
void log_open();
/// While no other thread logs. Without an open file nothing happens.
void log_close();

}  // namespace sonivo
