/* Output strings as written text: the attachment marks taken off at load time, so that joining a
   path's outputs reads no mark. */
#include <stdlib.h>
#include <string.h>

#include "t2s_model_layout.h"
#include "t2s_runtime.h"

static const char mark[] = "@@";

int t2s_prepare_texts(t2s_model* m) {
  m->texts = (char*)malloc(m->pool_size ? m->pool_size : 1);
  m->text_offsets = (uint32_t*)malloc(((size_t)m->num_strings + 1) * sizeof(uint32_t));
  m->attach = (uint8_t*)malloc(m->num_strings ? m->num_strings : 1);
  if (!m->texts || !m->text_offsets || !m->attach) return 0;
  uint32_t at = 0;
  m->has_attach = 0;
  for (uint32_t i = 0; i < m->num_strings; ++i) {
    const char* s = m->pool + m->string_offsets[i];
    size_t begin = 0, end = strlen(s);
    uint8_t attach = 0;
    if (end == 2 && memcmp(s, mark, 2) == 0) {
      attach = T2S_ATTACH_PREVIOUS | T2S_ATTACH_NEXT;
      begin = end;
    } else {
      /* Where an end mark may start: after a start mark, or after a literal one. */
      size_t body = 0;
      if (end >= 2 && memcmp(s, mark, 2) == 0) attach |= T2S_ATTACH_PREVIOUS, begin = body = 2;
      else if (end >= 3 && s[0] == '\\' && memcmp(s + 1, mark, 2) == 0) begin = 1, body = 3;
      if (end >= body + 3 && s[end - 3] == '\\' && memcmp(s + end - 2, mark, 2) == 0) {
        /* a literal mark at the end: the backslash goes, the mark stays */
        m->text_offsets[i] = at;
        memcpy(m->texts + at, s + begin, end - 3 - begin);
        memcpy(m->texts + at + (end - 3 - begin), mark, 2);
        at += (uint32_t)(end - 1 - begin);
        m->texts[at++] = 0;
        m->attach[i] = attach;
        m->has_attach |= attach != 0;
        continue;
      }
      if (end >= body + 2 && memcmp(s + end - 2, mark, 2) == 0) attach |= T2S_ATTACH_NEXT, end -= 2;
    }
    m->text_offsets[i] = at;
    memcpy(m->texts + at, s + begin, end - begin);
    at += (uint32_t)(end - begin);
    m->texts[at++] = 0;
    m->attach[i] = attach;
    m->has_attach |= attach != 0;
  }
  m->text_offsets[m->num_strings] = at;
  return 1;
}

const char* t2s_model_text(const t2s_model* m, uint32_t i, size_t* length, int* attach) {
  if (i >= m->num_strings) return NULL;
  if (length) *length = m->text_offsets[i + 1] - m->text_offsets[i] - 1;
  if (attach) *attach = m->attach[i];
  return m->texts + m->text_offsets[i];
}

size_t t2s_model_join(const t2s_model* m, const uint32_t* outputs, size_t n, const char* sep,
                      char* buffer, size_t size) {
  size_t const sep_length = sep ? strlen(sep) : 0;
  size_t total = 0;
  int before = T2S_ATTACH_NEXT; /* nothing goes before the first output */
  for (size_t k = 0; k < n; ++k) {
    if (outputs[k] >= m->num_strings) continue;
    size_t length;
    int attach;
    const char* text = t2s_model_text(m, outputs[k], &length, &attach);
    const char* pieces[2] = {t2s_attached(before, attach) ? "" : sep, text};
    size_t lengths[2] = {t2s_attached(before, attach) ? 0 : sep_length, length};
    for (int p = 0; p < 2; ++p) {
      if (total < size) memcpy(buffer + total, pieces[p],
                               lengths[p] < size - total ? lengths[p] : size - total);
      total += lengths[p];
    }
    before = attach;
  }
  if (size) buffer[total < size ? total : size - 1] = 0;
  return total;
}
