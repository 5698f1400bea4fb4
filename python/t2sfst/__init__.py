"""t2sfst: weighted finite-state transducers, JSGF grammars and T2S models from Python.

Machines (``load``, ``Machine``) support the algebra of the toolkit, iteration over states and
arcs, building arc by arc and saving in every format. ``compile_grammar`` and ``make_model``
compile JSGF grammars; ``Model`` applies a T2S model to text, in batches over several threads;
``Ngram`` compiles and scores back-off n-gram models.

A stop of the library (a bad file, a bad argument) raises ``t2sfst.Error``; the interpreter goes on.
"""
import math
import os
import re
import shutil
import subprocess
import tempfile
from typing import List, NamedTuple, Optional, Sequence


class Error(RuntimeError):
    """A stop of the library: ``message``, and the ``file`` and ``line`` being read, if any."""

    message = ""
    file = ""
    line = 0


class Message(NamedTuple):
    """One message of the grammar compiler."""

    severity: str  # "error", "warning" or "note"
    file: str  # "" where the compiler names none
    line: int  # 0 where it names none
    text: str
    column: int = 0  # 0 where it names none
    hint: str = ""  # what the compiler suggests, if anything


# "FILE:LINE:COLUMN: error: text" (then the line and a caret, then any hint as a note), as a
# grammar file's messages are written; "NAME, line N: text" from the string compiler.
_COMPILER = re.compile(r"^(?P<file>.*?)(?::(?P<line>\d+):(?P<column>\d+))?: "
                       r"(?P<kind>error|warning|note): (?P<text>.*)$")
_PLACED = re.compile(r"^(?:(?P<file>.*?), )?line (?P<line>\d+): (?P<text>.*)$")
_WARNING = re.compile(r"^(?P<kind>warning|WARNING): (?P<text>.*?)(?:, line (?P<line>\d+))?$")


def _messages(text: str) -> List[Message]:
    """The compiler's message lines as Message records."""
    result = []
    for line in text.splitlines():
        if not line.strip() or line.startswith(" "):
            continue  # the quoted line of the file and its caret
        placed = _COMPILER.match(line)
        if placed:
            at = (placed["file"], int(placed["line"] or 0), int(placed["column"] or 0))
            if (placed["kind"] == "note" and result and at[1]
                    and (result[-1].file, result[-1].line, result[-1].column) == at):
                result[-1] = result[-1]._replace(hint=placed["text"])
            else:
                result.append(Message(placed["kind"], at[0], at[1], placed["text"], at[2]))
            continue
        warning = _WARNING.match(line)
        if warning:
            result.append(Message("warning", "", int(warning["line"] or 0), warning["text"]))
            continue
        placed = _PLACED.match(line)
        if placed:
            severity = "warning" if placed["text"].lower().startswith("warning") else "error"
            result.append(Message(severity, placed["file"] or "", int(placed["line"]),
                                  placed["text"]))
        else:
            result.append(Message("error", "", 0, line))
    return result


class GrammarError(Error):
    """A grammar that does not compile; ``messages`` lists what the compiler said."""

    def __init__(self, text, messages=""):
        super().__init__(text)
        self.messages = _messages(messages) if isinstance(messages, str) else list(messages)

    def __str__(self):
        lines = [super().__str__()]
        for m in self.messages:
            place = m.file
            if m.line:
                place += ":%d" % m.line + (":%d" % m.column if m.column else "")
            lines.append((place + ": " if place else "") + m.severity + ": " + m.text
                         + (" (%s)" % m.hint if m.hint else ""))
        return "\n".join(lines)


from ._core import Arc, Machine, Ngram, label, label_id, load, version  # noqa: E402
from . import _core  # noqa: E402


def _repr_svg_(machine: Machine) -> Optional[str]:
    """The drawing of a machine, for notebooks (None without Graphviz's dot)."""
    dot = shutil.which("dot")
    if dot is None:
        return None
    done = subprocess.run([dot, "-Tsvg"], input=machine.dot().encode("utf-8", "surrogateescape"),
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    return done.stdout.decode("utf-8", "replace") if done.returncode == 0 else None


Machine._repr_svg_ = _repr_svg_
Machine.__repr__ = lambda m: "<t2sfst.Machine %s %s, %d states>" % (
    m.representation, m.semiring, m.num_states)


def compile_grammar(path: str, *, search_path: Sequence[str] = (), allow_undefined: bool = False,
                    drop_tags: bool = False, no_output: bool = False, mark_rules: bool = False,
                    pauses: bool = False, optimize: bool = True):
    """Compiles a JSGF grammar file (imports from its folder and each folder of search_path).

    Returns (machine, messages), messages being the compiler's warnings as Message records;
    raises GrammarError, with the messages, when the grammar does not compile.
    """
    machine, text = _core._compile_grammar_file(os.fspath(path), [os.fspath(p) for p in search_path],
                                                allow_undefined, drop_tags, no_output,
                                                mark_rules, pauses, optimize)
    return machine, _messages(text)


def compile_grammar_string(text: str, *, allow_undefined: bool = False, drop_tags: bool = False,
                           no_output: bool = False, mark_rules: bool = False, pauses: bool = False,
                           optimize: bool = True):
    """Compiles a JSGF grammar (or a bare expansion) given as text; as compile_grammar."""
    machine, messages = _core._compile_grammar_string(text, allow_undefined, drop_tags, no_output,
                                                      mark_rules, pauses, optimize)
    return machine, _messages(messages)


def make_model(grammar: str, model: str, *, search_path: Sequence[str] = (),
               allow_undefined: bool = False) -> "Model":
    """Builds the T2S model of a JSGF grammar file, as ``t2sfst make-model`` does.

    The grammar's imports are resolved and references to undefined rules fail (unless
    allow_undefined); GrammarError carries the compiler's messages. The model file appears only
    when complete. Returns the loaded model.
    """
    compiled, _ = compile_grammar(grammar, search_path=search_path,
                                  allow_undefined=allow_undefined, optimize=False)
    model = os.fspath(model)
    folder = os.path.dirname(os.path.abspath(model))
    handle, temp = tempfile.mkstemp(prefix=".t2sfst-", dir=folder)
    os.close(handle)
    try:
        _core._build_model(compiled, temp)
        loaded = Model(temp)  # refused here, not after the rename, if anything went wrong
        umask = os.umask(0)
        os.umask(umask)
        os.chmod(temp, 0o666 & ~umask)
        os.replace(temp, model)
    except BaseException:
        if os.path.exists(temp):
            os.unlink(temp)
        raise
    loaded.path = model
    return loaded


class Model:
    """A T2S model: ``apply`` reads a whole text (None when the model does not), ``rewrite``
    replaces the longest runs of words it reads. The ``_many`` forms take a list of texts and
    decode them in ``threads`` threads (0: every core) without holding the interpreter lock; the
    ``_lines`` forms take a text of many lines and give the command's output for it. Outputs
    that attach ("@@" in the grammar) join without ``sep``; with ``ignore_case``, ASCII letters
    match whatever their case (as ``apply --ignore-case``)."""

    def __init__(self, path: str, sep: str = " ", ignore_case: bool = False):
        self.path = os.fspath(path)
        self._model = _core._Model(self.path, sep, ignore_case)

    def apply(self, text: str) -> Optional[str]:
        return self._model.apply(text)

    def rewrite(self, text: str) -> str:
        return self._model.rewrite(text)

    def apply_many(self, texts: Sequence[str], threads: int = 0) -> List[Optional[str]]:
        return self._model.apply_many(texts, threads)

    def rewrite_many(self, texts: Sequence[str], threads: int = 0) -> List[str]:
        return self._model.rewrite_many(texts, threads)

    def apply_lines(self, text: str) -> str:
        """A text of many lines, as ``t2sfst apply`` reads it: one output line, with its newline,
        for each line, empty where the model does not read the line. Faster than apply_many
        for large texts: no str object is made for a line."""
        return self._model.apply_lines(text)

    def rewrite_lines(self, text: str) -> str:
        """A text of many lines rewritten as ``t2sfst apply --rewrite`` rewrites them."""
        return self._model.rewrite_lines(text)

    @property
    def num_states(self) -> int:
        return self._model.num_states

    @property
    def num_arcs(self) -> int:
        return self._model.num_arcs

    def __repr__(self):
        return "<t2sfst.Model %s, %d states>" % (self.path, self.num_states)


class Perplexity(NamedTuple):
    sentences: int
    words: int  # scored, "</s>" included
    oov: int  # words outside the vocabulary
    cost: float  # -ln P of the scored words
    perplexity: float


def _perplexity(self: Ngram, sentences: Sequence[str]) -> Perplexity:
    """Perplexity over sentences: exp(cost / words), words outside the vocabulary left out
    (or scored as "<unk>" where the model has it) and counted."""
    sentences = list(sentences)
    cost, words, oov = self._totals(sentences)
    value = math.exp(cost / words) if words else math.nan
    return Perplexity(len(sentences), words, oov, cost, value)


Ngram.perplexity = _perplexity

__all__ = ["Arc", "Error", "GrammarError", "Machine", "Message", "Model", "Ngram", "Perplexity",
           "compile_grammar", "compile_grammar_string", "label", "label_id", "load", "make_model",
           "version"]
