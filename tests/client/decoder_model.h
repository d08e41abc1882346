/// What the three decoders are to make of a reply that arrives in given pieces: written over
/// positions in the whole reply, without buffers, so that it shares nothing with the decoders.
#ifndef SCA_TESTS_CLIENT_DECODER_MODEL_H
#define SCA_TESTS_CLIENT_DECODER_MODEL_H

#include <string>
#include <vector>

struct ModelOutcome {
  unsigned long code = 0;  ///< 0: success
  bool keepsValid = true;
  std::string text;                   ///< collected until the end, delivered or not
  std::vector<unsigned long> blocks;  ///< lengths of those that are delivered
};

/// @param headerLength  Of the reply's header, leading empty lines included.
/// @param capacity      Of the data buffer; every chunk and its CR LF fit.
ModelOutcome PredictOutcome(unsigned long variant, const std::vector<std::string>& pieces,
                            std::size_t headerLength, std::size_t capacity);

#endif  // SCA_TESTS_CLIENT_DECODER_MODEL_H
