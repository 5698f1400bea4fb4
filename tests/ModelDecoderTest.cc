// The model decoder against a plain search on random packed models: the same texts accepted at
// the same best cost, whatever shortcuts the decoder takes (one-arc steps, large layers, words
// fed in pieces).
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "t2s_runtime.h"

namespace {

struct Arc {
  uint8_t input;
  uint32_t output;
  uint32_t next;
  float weight;
};

struct Model {
  int32_t start;
  std::vector<std::vector<Arc>> arcs;  // per state
  std::vector<uint8_t> final;
};

std::string Pack(Model const& m) {
  std::string bytes;
  auto u32 = [&bytes](uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes += char(v >> (8 * i));
  };
  u32(uint32_t(m.start));
  u32(uint32_t(m.arcs.size()));
  uint32_t first = 0, n_arcs = 0;
  for (size_t p = 0; p < m.arcs.size(); ++p) {
    u32(first);
    u32(first += uint32_t(m.arcs[p].size()));
    u32(m.final[p]);
  }
  for (auto const& arcs : m.arcs) n_arcs += uint32_t(arcs.size());
  u32(n_arcs);
  for (auto const& arcs : m.arcs)
    for (Arc const& a : arcs) {
      uint32_t bits;
      std::memcpy(&bits, &a.weight, 4);
      u32(a.input), u32(a.output), u32(a.next), u32(bits);
    }
  u32(3), u32(5);
  return bytes + std::string("\0x\0y\0", 5);
}

// (outputs written inside a word, weight): the order in which paths compete.
using Cost = std::pair<uint32_t, float>;
using Layer = std::map<uint32_t, Cost>;

// Best cost of a path reading the text, one map of state costs per byte, epsilon arcs followed
// until nothing improves.
std::optional<Cost> Reference(Model const& m, std::string const& text) {
  if (m.start < 0) return std::nullopt;
  auto improve = [](Layer& layer, uint32_t state, Cost cost) {
    auto found = layer.find(state);
    if (found != layer.end() && !(cost < found->second)) return false;
    layer[state] = cost;
    return true;
  };
  auto close = [&](Layer& layer, bool inside_word) {
    for (bool changed = true; changed;) {
      changed = false;
      for (auto const& [state, cost] : Layer(layer))
        for (Arc const& a : m.arcs[state])
          if (a.input == 0)
            changed |= improve(layer, a.next,
                               {cost.first + (inside_word && a.output), cost.second + a.weight});
    }
  };
  auto step = [&](Layer const& from, std::string const& bytes, bool inside_word) {
    Layer to;
    for (auto const& [state, cost] : from)
      for (Arc const& a : m.arcs[state])
        if (a.input && bytes.find(char(a.input)) != std::string::npos)
          improve(to, a.next, {cost.first + (inside_word && a.output), cost.second + a.weight});
    return to;
  };
  Layer layer{{uint32_t(m.start), {0, 0.0f}}};
  close(layer, false);
  std::vector<std::string> words;
  for (size_t i = 0; i < text.size();) {
    size_t end = text.find_first_of(" \t\r\n", i);
    if (end == std::string::npos) end = text.size();
    if (end > i) words.push_back(text.substr(i, end - i));
    i = end + 1;
  }
  for (size_t w = 0; w < words.size(); ++w) {
    if (w) {  // between words: nothing, or one space or tab
      Layer next = step(layer, " \t", false);
      for (auto const& [state, cost] : layer) improve(next, state, cost);
      close(layer = next, false);
    }
    for (size_t i = 0; i < words[w].size(); ++i) {
      bool inside_word = i + 1 < words[w].size();
      layer = step(layer, words[w].substr(i, 1), inside_word);
      close(layer, inside_word);
    }
  }
  std::optional<Cost> best;
  for (auto const& [state, cost] : layer)
    if (m.final[state] && (!best || cost < *best)) best = cost;
  return best;
}

TEST(ModelDecoder, AgreesWithAPlainSearchOnRandomModels) {
  std::mt19937 rng(5);
  char const inputs[] = {0, 'a', 'b', 'c', ' ', '\t'};
  int accepted = 0;
  for (int round = 0; round < 400; ++round) {
    Model m;
    size_t n_states = 1 + rng() % 40;
    m.start = rng() % 10 ? int32_t(rng() % n_states) : -1;
    m.arcs.resize(n_states);
    for (size_t p = 0; p < n_states; ++p) {
      m.final.push_back(rng() % 2);
      // Some states with many arcs: byte tables, and layers too large to search directly.
      for (size_t k = rng() % (p % 3 ? 6 : 40); k > 0; --k) {
        // Every fourth model reads letters only: most of its texts take the clean path.
        uint8_t input = uint8_t(inputs[round % 4 == 3 ? 1 + rng() % 3 : rng() % 6]);
        if (round % 5 == 4 && input >= 'a' && rng() % 2) input = uint8_t(std::toupper(input));
        float weight = float(rng() % 8) / 2;
        if (input && rng() % 5 == 0) weight = -weight;  // never on an epsilon cycle
        // Every other model emits rarely, so that many texts have one path silent inside words.
        uint32_t output = round % 2 || rng() % 4 == 0 ? uint32_t(rng() % 3) : 0;
        m.arcs[p].push_back({input, output, uint32_t(rng() % n_states), weight});
      }
    }
    std::string const bytes = Pack(m);
    // Loaded to ignore case, the model reads as its arcs with capitals made small would read
    // the text with capitals made small: every check below holds of that.
    Model lowered = m;
    for (auto& arcs : lowered.arcs)
      for (Arc& a : arcs) a.input = uint8_t(std::tolower(a.input));
    for (int fold = 0; fold < 2; ++fold) {
      Model const& m_read = fold ? lowered : m;
      auto Reference = [&](Model const&, std::string const& text) {
        std::string small = text;
        for (char& c : small) c = char(std::tolower(static_cast<unsigned char>(c)));
        return ::Reference(m_read, fold ? small : text);
      };
      char error[256];
      t2s_model* model = t2s_model_from_memory_with(
          bytes.data(), bytes.size(), fold ? T2S_IGNORE_CASE : 0, error, sizeof error);
      ASSERT_NE(model, nullptr) << error;
      // A look inside gives each state's arcs as packed, sorted by input.
      for (uint32_t p = 0, first, end; p < n_states; ++p) {
        int final;
        ASSERT_TRUE(t2s_model_state(model, p, &first, &end, &final));
        EXPECT_EQ(final, m.final[p]);
        using Seen = std::tuple<uint8_t, uint32_t, int32_t, float>;
        std::vector<Seen> seen, packed;
        for (uint32_t a = first; a < end; ++a) {
          Seen arc;
          t2s_model_arc(model, a, &std::get<0>(arc), &std::get<1>(arc), &std::get<2>(arc),
                        &std::get<3>(arc));
          EXPECT_TRUE(seen.empty() || std::get<0>(seen.back()) <= std::get<0>(arc));
          seen.push_back(arc);
        }
        for (Arc const& a : m_read.arcs[p])
          packed.emplace_back(a.input, a.output, int32_t(a.next), a.weight);
        std::sort(seen.begin(), seen.end());
        std::sort(packed.begin(), packed.end());
        EXPECT_EQ(seen, packed) << round << " state " << p;
      }
      t2s_decoder* decoder = t2s_decoder_new(model);
      std::vector<std::string> texts;
      std::vector<std::optional<std::pair<float, std::vector<uint32_t>>>> decoded;
      for (int t = 0; t < 20; ++t) {
        std::string text;
        std::string const alphabet = fold ? "aBcAbC \t" : "abc  \t";
        for (size_t i = rng() % 12; i > 0; --i) text += alphabet[rng() % alphabet.size()];
        texts.push_back(text);
        t2s_decoder_reset(decoder);
        for (size_t i = 0; i < text.size(); i += 3)
          t2s_decoder_feed(decoder, text.data() + i, std::min<size_t>(3, text.size() - i));
        std::optional<Cost> expected = Reference(m, text);
        float weight;
        uint32_t const* outputs;
        size_t n;
        EXPECT_EQ(t2s_decoder_accepts(decoder), expected.has_value())
            << round << " '" << text << "'";
        ASSERT_EQ(t2s_decoder_best(decoder, &outputs, &n, &weight), expected.has_value())
            << round << " '" << text << "'";
        std::vector<uint32_t> const best(outputs, outputs + (expected ? n : 0));
        if (expected) {
          EXPECT_EQ(weight, expected->second) << round << " '" << text << "'";
        }
        // The one-call decoding finds the same path, with or without the layered search.
        ASSERT_EQ(t2s_decoder_decode(decoder, text.data(), text.size(), &outputs, &n, &weight),
                  expected.has_value())
            << round << " '" << text << "'";
        decoded.emplace_back();
        if (expected) {
          EXPECT_EQ(weight, expected->second) << round << " '" << text << "'";
          EXPECT_EQ(std::vector<uint32_t>(outputs, outputs + n), best)
              << round << " '" << text << "'";
          decoded.back().emplace(weight, best);
        }
        EXPECT_EQ(t2s_decoder_accepts(decoder), Reference(m, "").has_value());  // left reset
        // The longest match: the longest run of whole words from the start that is read.
        size_t longest = 0;
        for (size_t end = 1; end <= text.size(); ++end)
          if (text[end - 1] != ' ' && text[end - 1] != '\t' &&
              (end == text.size() || text[end] == ' ' || text[end] == '\t') &&
              Reference(m, text.substr(0, end)))
            longest = end;
        std::vector<uint32_t> run;
        if (longest) {
          ASSERT_TRUE(t2s_decoder_decode(decoder, text.data(), longest, &outputs, &n, nullptr));
          run.assign(outputs, outputs + n);
        }
        ASSERT_EQ(
            t2s_decoder_longest_match(decoder, text.data(), text.size(), &outputs, &n, &weight),
            longest)
            << round << " '" << text << "'";
        if (longest) {
          EXPECT_EQ(weight, Reference(m, text.substr(0, longest))->second) << round << " '" << text;
          EXPECT_EQ(std::vector<uint32_t>(outputs, outputs + n), run)
              << round << " '" << text << "'";
        }
        accepted += expected.has_value();
      }
      // Many texts at once, two in flight: each as decoded alone (an odd count too).
      for (size_t count : {texts.size(), texts.size() - 1}) {
        std::vector<char const*> starts;
        std::vector<size_t> lengths;
        for (size_t i = 0; i < count; ++i) {
          starts.push_back(texts[i].data());
          lengths.push_back(texts[i].size());
        }
        std::vector<t2s_decoded> results(count);
        uint32_t const* outputs;
        ASSERT_TRUE(t2s_decoder_decode_many(decoder, starts.data(), lengths.data(), count,
                                            results.data(), &outputs));
        for (size_t i = 0; i < count; ++i) {
          ASSERT_EQ(results[i].found != 0, decoded[i].has_value()) << round << " '" << texts[i];
          if (!decoded[i]) continue;
          EXPECT_EQ(results[i].weight, decoded[i]->first) << round << " '" << texts[i] << "'";
          uint32_t const* first = outputs + results[i].first_output;
          EXPECT_EQ(std::vector<uint32_t>(first, first + results[i].n_outputs), decoded[i]->second)
              << round << " '" << texts[i] << "'";
        }
        EXPECT_EQ(t2s_decoder_accepts(decoder), Reference(m, "").has_value());  // left reset
      }
      t2s_decoder_free(decoder);
      t2s_model_free(model);
    }
  }
  EXPECT_GT(accepted, 1000);  // the property is not checked on rejections alone
}

// "abc": the path without outputs at its forks emits inside the word further on, so it is not
// the best one by that alone; the one-call searches must still find the lighter path.
// "a b": between the words a blank arc that loops back competes with reading nothing; the one
// state reached does not make the path unique.
// "a bc": both ways on from "a" read "bc" without an output inside, the lighter through an
// epsilon arc inside the word.
// "ab": two arcs read "a" without an output, the second lighter: neither is the clean path.
TEST(ModelDecoder, OneCallSearchesWeighEveryPath) {
  Model inside{
      0,
      {{{'a', 0, 1, 5}, {'a', 1, 2, 0}}, {{'b', 2, 3, 0}}, {{'b', 0, 3, 0}}, {{'c', 0, 4, 0}}, {}},
      {0, 0, 0, 0, 1}};
  Model blank{0, {{{'a', 0, 1, 0}}, {{' ', 2, 1, -1}, {'b', 0, 2, 0}}, {}}, {0, 0, 1}};
  Model ahead{0,
              {{{'a', 1, 1, 5}, {'a', 0, 2, 0}},
               {{'b', 0, 3, 0}},
               {{'b', 0, 5, 0}},
               {{'c', 2, 4, 0}},
               {},
               {{0, 0, 6, 0}},
               {{'c', 2, 4, 0}}},
              {0, 0, 0, 0, 1, 0, 0}};
  Model twins{
      0, {{{'a', 0, 1, 5}, {'a', 0, 2, 0}}, {{'b', 1, 3, 0}}, {{'b', 2, 3, 0}}, {}}, {0, 0, 0, 1}};
  for (auto const& [m, text, expected] : {std::tuple{inside, "abc", std::vector<uint32_t>{1}},
                                          {blank, "a b", {2}},
                                          {ahead, "a bc", {2}},
                                          {twins, "ab", {2}}}) {
    std::string const bytes = Pack(m);
    t2s_model* model = t2s_model_from_memory(bytes.data(), bytes.size(), nullptr, 0);
    ASSERT_NE(model, nullptr);
    t2s_decoder* decoder = t2s_decoder_new(model);
    uint32_t const* outputs;
    size_t n;
    ASSERT_TRUE(t2s_decoder_decode(decoder, text, std::strlen(text), &outputs, &n, nullptr));
    EXPECT_EQ(std::vector<uint32_t>(outputs, outputs + n), expected) << text;
    ASSERT_EQ(t2s_decoder_longest_match(decoder, text, std::strlen(text), &outputs, &n, nullptr),
              std::strlen(text));
    EXPECT_EQ(std::vector<uint32_t>(outputs, outputs + n), expected) << text;
    t2s_decoder_free(decoder);
    t2s_model_free(model);
  }
}

}  // namespace
