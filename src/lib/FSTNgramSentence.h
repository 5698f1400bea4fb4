// Scoring a sentence with a back-off model, the same for every stored form of the model: the
// sentence is "<s> words </s>", each word's cost taken after the words before it. A word outside
// the vocabulary is the unknown-word token when the model has one; otherwise it is left out,
// counted, and the next word is scored as if the sentence began there (without "<s>"). Linear
// in the words, given the model's cost.
#ifndef T2SFST_FSTNGRAMSENTENCE_H
#define T2SFST_FSTNGRAMSENTENCE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

struct FSTNgramSentenceScore {
  double cost = 0;  // -ln P, with back-off
  size_t words = 0, oov = 0;  // words scored ("</s>" included) and those outside the vocabulary
  std::string first_oov;
};

// Model gives: a word type W; members none, start, end and unknown (none when it has no
// unknown-word token); lookup(std::string_view) -> W (none outside the vocabulary); and
// cost(std::vector<W> const& history, W word) -> float.
template <class Model>
FSTNgramSentenceScore FSTNgramScoreSentence(Model const& model, std::string_view sentence) {
  using Word = std::remove_const_t<decltype(model.start)>;
  FSTNgramSentenceScore result;
  std::vector<Word> history{model.start};
  auto add = [&](Word word) {
    result.cost += double(model.cost(history, word));
    ++result.words;
    history.push_back(word);
  };
  // Words are separated by white space, as the C locale has it.
  auto blank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  for (size_t at = 0;;) {
    while (at < sentence.size() && blank(sentence[at])) ++at;
    if (at == sentence.size()) break;
    size_t const begin = at;
    while (at < sentence.size() && !blank(sentence[at])) ++at;
    std::string_view const token = sentence.substr(begin, at - begin);
    auto word = model.lookup(token);
    if (word == model.none) {
      if (!result.oov++) result.first_oov = std::string(token);
      if (model.unknown == model.none) {
        history.clear();
        continue;
      }
      word = model.unknown;
    }
    add(word);
  }
  add(model.end);
  return result;
}

#endif
