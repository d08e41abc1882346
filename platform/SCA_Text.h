/// Bounded text copies, tokens and comparisons. Texts are bytes; no locale is consulted.
/// Threads: free functions without shared state.
#ifndef SCA_PLATFORM_SCA_TEXT_H
#define SCA_PLATFORM_SCA_TEXT_H

#include "platform/SCA_Object.h"

/// What happens to a text that is longer than its field.
enum class SCA_TextFit {
  Cut,    ///< the field keeps the first bytes that fit
  Refuse  ///< the field keeps what it held
};

/// Copies a zero-terminated text into a field.
/// @param target  Field of `size` bytes, terminating zero included.
/// @param size    > 0.
/// @param source  Null counts as the empty text. May be a part of the target.
/// @return 1 when the whole text was copied; 0 when it was cut or refused.
SCA_API int SCA_CopyText(char* target, unsigned long size, const char* source, SCA_TextFit fit);

template <unsigned long N>
int SCA_CopyText(char (&target)[N], const char* source, SCA_TextFit fit) {
  return SCA_CopyText(target, N, source, fit);
}

/// @return The bytes to keep of a text that is cut after `length` of its bytes, so that no UTF-8
///         character is left in part: at most three fewer. Bytes that are not UTF-8 are cut where
///         they are.
SCA_API unsigned long SCA_CutLength(const char* text, unsigned long length);

/// Makes a text fit to be stored and shown on one line: every control byte except the tab, zeros
/// included, becomes a blank.
SCA_API void SCA_BlankControls(char* text, unsigned long length);

/// Takes the next token of a text whose tokens are separated by runs of blanks and tabs.
/// @param text      Zero-terminated; null counts as empty.
/// @param position  In: byte position to start from, at most the text's length; out: the position
///                  after the token.
/// @param token     Receives the token, zero-terminated, cut to `size` - 1 bytes; the position
///                  moves past the whole token all the same. Untouched when there is none.
/// @param size      Capacity of `token` in bytes, > 0.
/// @return 1 when there was a token, else 0.
SCA_API int SCA_GetToken1(const char* text, unsigned long* position, char* token,
                          unsigned long size);

/// @return 1 when the texts are equal, the case of the ASCII letters ignored; a null text equals
///         only another null.
SCA_API int SCA_StrCompareNoCase(const char* left, const char* right);

/// @return 1 when a word is one of a text's tokens, the case of the ASCII letters ignored. Tokens
///         are compared by their first 259 bytes.
SCA_API int SCA_HasToken(const char* text, const char* word);

/// Writes a number of bytes as people read it: "512 bytes", "1.5 KB" (of 1024 bytes), up to "EB".
/// @param size  Capacity of `text` in bytes, > 0; 32 hold every number.
/// @return 1, or 0 when the text did not fit, `text` then being empty.
SCA_API int SCA_FormatSize(unsigned long long bytes, char* text, unsigned long size);

#endif  // SCA_PLATFORM_SCA_TEXT_H
