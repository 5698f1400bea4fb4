#!/usr/bin/env python3
"""Writes the English inverse text normalisation grammars of this folder.

The grammars are regular and large in places (every "N to H" time, every day of the month), so
they are written from the tables below rather than by hand. Run it after changing a table:

    python3 grammars/en/make_grammars.py [FOLDER]

(FOLDER, this one by default, is where the files go: the tests write them elsewhere and compare.)

Conventions of the written forms (see the README): a written side that begins with "@@" attaches
to the output before it, so a number is written digit by digit ("@@1" "@@4" "@@7") and reads
"147"; an empty spoken side (":@@0") writes what the speaker leaves out; "\\:" is a colon of
the written side.
"""

import os
import sys

HERE = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))

UNITS = ["one", "two", "three", "four", "five", "six", "seven", "eight", "nine"]
TEENS = ["ten", "eleven", "twelve", "thirteen", "fourteen", "fifteen", "sixteen", "seventeen",
         "eighteen", "nineteen"]
TENS = ["twenty", "thirty", "forty", "fifty", "sixty", "seventy", "eighty", "ninety"]
ORD_UNITS = ["first", "second", "third", "fourth", "fifth", "sixth", "seventh", "eighth", "ninth"]
ORD_TEENS = ["tenth", "eleventh", "twelfth", "thirteenth", "fourteenth", "fifteenth",
             "sixteenth", "seventeenth", "eighteenth", "nineteenth"]
ORD_TENS = ["twentieth", "thirtieth", "fortieth", "fiftieth", "sixtieth", "seventieth",
            "eightieth", "ninetieth"]
SCALES = ["thousand", "million", "billion", "trillion", "quadrillion", "quintillion",
          "sextillion"]
MONTHS = ["january", "february", "march", "april", "may", "june", "july", "august", "september",
          "october", "november", "december"]


def suffix(n):
    if n % 100 in (11, 12, 13):
        return "th"
    return {1: "st", 2: "nd", 3: "rd"}.get(n % 10, "th")


def spoken_cardinal(n):
    """1..99 as spoken."""
    if n < 10:
        return UNITS[n - 1]
    if n < 20:
        return TEENS[n - 10]
    return TENS[n // 10 - 2] + ("" if n % 10 == 0 else " " + UNITS[n % 10 - 1])


def spoken_ordinal(n):
    """1..99 as a spoken ordinal."""
    if n < 10:
        return ORD_UNITS[n - 1]
    if n < 20:
        return ORD_TEENS[n - 10]
    if n % 10 == 0:
        return ORD_TENS[n // 10 - 2]
    return TENS[n // 10 - 2] + " " + ORD_UNITS[n % 10 - 1]


def token(spoken, written):
    """A token: quoted when the spoken side has blanks (its backslashes then doubled)."""
    if " " in spoken or "'" in spoken:
        return '"%s:%s"' % (spoken, written.replace("\\", "\\\\"))
    return "%s:%s" % (spoken, written)


def alternatives(items, per_line=4):
    lines, line = [], []
    for item in items:
        line.append(item)
        if len(line) == per_line:
            lines.append(" | ".join(line))
            line = []
    if line:
        lines.append(" | ".join(line))
    return "\n    | ".join(lines)


def rule(name, items, public=False, per_line=4):
    return "%s<%s> =\n      %s;\n" % ("public " if public else "", name,
                                       alternatives(items, per_line))


def grammar(name, body, imports=()):
    head = "#JSGF V1.0;\n// Written by make_grammars.py: change the tables there.\ngrammar %s;\n" % name
    head += "".join("import <%s.*>;\n" % i for i in imports)
    with open(os.path.join(HERE, name + ".gram"), "w") as out:
        out.write(head + "\n" + body)


def numbers():
    r = []
    # Digits written attached ("@@d"): a number's digits join; the first output of a
    # replacement has nothing before it to join.
    r.append(rule("digit", [token(w, "@@%d" % (i + 1)) for i, w in enumerate(UNITS)], True))
    r.append(rule("teen", [token(w, "@@%d" % (i + 10)) for i, w in enumerate(TEENS)], True))
    r.append(rule("tens", [token(w, "@@%d" % (i + 2)) for i, w in enumerate(TENS)], True))
    r.append(rule("two_digit", ["<teen>", "<tens> (<digit> | :@@0)"], True))
    r.append(rule("to99", ["<digit>", "<two_digit>"], True))
    r.append(rule("pad2", [":@@0 <digit>", "<two_digit>"], True))
    r.append(rule("hundreds", ["(<digit> | a:@@1) hundred: [and:] (<pad2> | :@@00)",
                               "hundred:@@1 [and:] (<pad2> | :@@00)"], True))
    r.append(rule("to999", ["<to99>", "<hundreds>"], True))
    r.append(rule("pad3", [":@@00 <digit>", ":@@0 <two_digit>", "<hundreds>"], True))
    # "eleven hundred", "nineteen hundred and five", "twenty five hundred"
    r.append(rule("hundred_form", ["(<teen> | <tens> <digit>) hundred: [and:] (<pad2> | :@@00)"],
                  True))
    # The groups after a scale word: each present (padded) or left out (zeros).
    r.append(rule("after_thousand", ["[and:] <pad3>", ":@@000"], True))
    previous = "after_thousand"
    for scale in SCALES[1:]:
        lower = SCALES[SCALES.index(scale) - 1]
        name = "after_" + scale
        r.append(rule(name, ["<pad3> %s: <%s>" % (lower, previous), ":@@000 <%s>" % previous],
                      True))
        previous = name
    top = ["<to999>", "<hundred_form>"]
    for scale in SCALES:
        top.append("(<to999> | a:@@1) %s: <after_%s>" % (scale, scale))
    # Lakh and crore: two-digit groups below a lakh.
    r.append(rule("after_lakh", ["<pad2> thousand: <after_thousand>", ":@@00 <after_thousand>"],
                  True))
    r.append(rule("after_crore", ["<pad2> lakh: <after_lakh>", ":@@00 <after_lakh>"], True))
    top += ["<to99> lakh: <after_lakh>", "<to99> crore: <after_crore>"]
    r.append(rule("positive", top, True, per_line=1))
    r.append(rule("cardinal", ["[minus:-] <positive>", "zero:@@0"], True))
    # The first output plain, for numbers that follow a word of the same replacement ("july 25",
    # "$2.5 billion" has its sign attached instead).
    r.append(rule("plain_to99", [token(spoken_cardinal(n), str(n)) for n in range(1, 100)], True,
                  per_line=6))
    r.append(rule("space", ['":@@ "'], True))
    grammar("numbers", "".join(r))


def ordinals():
    r = []
    r.append(rule("ord_digit", [token(w, "@@%d%s" % (i + 1, suffix(i + 1)))
                                for i, w in enumerate(ORD_UNITS)], True))
    r.append(rule("ord_two_digit",
                  [token(w, "@@%dth" % (i + 10)) for i, w in enumerate(ORD_TEENS)] +
                  [token(w, "@@%d0th" % (i + 2)) for i, w in enumerate(ORD_TENS)] +
                  ["<tens> <ord_digit>"], True))
    r.append(rule("ord_to99", ["<ord_digit>", "<ord_two_digit>"], True))
    r.append(rule("ord_pad2", [":@@0 <ord_digit>", "<ord_two_digit>"], True))
    r.append(rule("ord_hundreds", ["(<digit> | a:@@1) hundred: [and:] <ord_pad2>",
                                   "hundred:@@1 [and:] <ord_pad2>",
                                   "(<digit> | a:@@1) hundredth:@@00th"], True))
    r.append(rule("ord_pad3", [":@@00 <ord_digit>", ":@@0 <ord_two_digit>", "<ord_hundreds>"],
                  True))
    r.append(rule("ord_after_thousand", ["[and:] <ord_pad3>"], True))
    # "first" and "second" alone are usually words ("the first time", "a second"): the other
    # ordinals of one word are written.
    r.append(rule("ord_lone", [token(w, "@@%d%s" % (i + 1, suffix(i + 1)))
                               for i, w in enumerate(ORD_UNITS) if i >= 2], True))
    r.append(rule("ordinal", [
        "<ord_lone>", "<ord_two_digit>", "<ord_hundreds>",
        "(<to999> | a:@@1) thousand: <ord_after_thousand>",
        "(<to999> | a:@@1) thousandth:@@000th",
        "(<to999> | a:@@1) million: (<pad3> thousand: <ord_after_thousand> | "
        "<pad3> thousandth:@@000th | :@@000 <ord_after_thousand>)",
        "(<to999> | a:@@1) millionth:@@000000th",
        "(<to999> | a:@@1) billionth:@@000000000th"], True, per_line=1))
    grammar("ordinal", "".join(r), ["numbers"])


def decimals():
    r = []
    r.append(rule("frac_digit", ["<digit>", "zero:@@0", "oh:@@0", "o:@@0"], True))
    r.append(rule("fraction", ["point:@@. <frac_digit>+"], True))
    # Larger amounts keep their scale word ("5.2 million"); thousands are written out.
    scale_words = SCALES[1:] + ["lakh", "crore"]
    r.append(rule("scale_word", scale_words, True))
    r.append(rule("decimal", [
        "[minus:-] (<positive> | zero:@@0 | oh:@@0) <fraction> [<scale_word>]",
        "[minus:-] point:. <frac_digit>+ [<scale_word>]",
        "[minus:-] <to999> <scale_word>"], True, per_line=1))
    grammar("decimal", "".join(r), ["numbers"])


CURRENCIES = [  # spoken singular, plural, sign, minor unit singular, plural
    ("dollar", "dollars", "$", "cent", "cents"),
    ("pound", "pounds", "£", "penny", "pence"),
    ("euro", "euros", "€", "cent", "cents"),
    ("yen", "yen", "¥", None, None),
    ("won", "won", "₩", None, None),
]
WORD_CURRENCIES = ["rupees", "rupee", "francs", "franc", "yuan", "pesos", "peso", "rubles",
                   "ruble", "dinars", "dinar", "krona", "kronor", "rand", "reais", "real", "lira",
                   "liras", "dirhams", "dirham", "shekels", "shekel", "baht", "ringgit", "naira"]


def money():
    r = []
    r.append(rule("cents", [":@@. (<pad2> | zero:@@00)"], True))
    forms = []
    for one, many, sign, minor_one, minor_many in CURRENCIES:
        sign_token = ":%s@@" % sign
        names = "(%s: | %s:)" % (one, many) if one != many else "%s:" % one
        amount = "(<positive> | zero:@@0)"
        forms.append("%s %s %s" % (sign_token, amount, names))
        forms.append("%s <positive> <fraction> [<scale_word>] %s" % (sign_token, names))
        forms.append("%s <to999> <scale_word> %s" % (sign_token, names))
        if minor_one:
            minor = "(%s: | %s:)" % (minor_one, minor_many)
            forms.append("%s %s %s [and:] <cents> %s" % (sign_token, amount, names, minor))
            forms.append("%s %s %s <cents>" % (sign_token, amount, names))
            forms.append("%s :@@0 <cents> %s" % (sign_token, minor))
    words = ["(<positive> | <positive> <fraction>) %s" % w for w in WORD_CURRENCIES]
    r.append(rule("money", forms + words, True, per_line=1))
    grammar("money", "".join(r), ["numbers", "decimal"])


ZONES = ["e s t", "e d t", "c s t", "c d t", "m s t", "m d t", "p s t", "p d t", "g m t",
         "u t c", "b s t", "c e t", "i s t", "j s t", "a e s t", "h s t", "a k s t"]


def times():
    r = []
    hours = [(w, n) for n, w in enumerate(["zero"] + UNITS + TEENS + ["twenty"] +
                                          ["twenty " + u for u in UNITS[:3]])]
    r.append(rule("hour", [token(w, "%02d" % n) for w, n in hours], True, per_line=6))
    r.append(rule("hour12", [token(w, "%02d" % n) for w, n in hours if 1 <= n <= 12], True,
                  per_line=6))
    # Without "a m" or "p m", "seven oh five" is a time, but "nineteen oh five" a year.
    r.append(rule("hour_oh", [token(w, "%02d" % n) for w, n in hours if 1 <= n <= 10], True,
                  per_line=6))
    oh_minutes = [token("oh " + u, "@@\\:0%d" % (i + 1)) for i, u in enumerate(UNITS)]
    # "seven oh five": a time even without "a m" or "p m".
    r.append(rule("oh_minute", oh_minutes, True, per_line=5))
    minutes = ["<oh_minute>"]
    minutes += [token(spoken_cardinal(n), "@@\\:%02d" % n) for n in range(10, 60)]
    r.append(rule("minute", minutes, True, per_line=6))
    r.append(rule("ampm", ['"a m:a.m."', '"p m:p.m."', "am:a.m.", "pm:p.m.", '"a.m.:a.m."',
                           '"p.m.:p.m."'], True))
    r.append(rule("zone", [token(z, z.replace(" ", "")) for z in ZONES], True, per_line=6))
    # "N to H" and "quarter to H": the hour before, and the minutes left; the whole time is
    # written at the hour, the last word.
    to_forms = []
    for m in list(range(1, 60)):
        spoken = "quarter" if m == 15 else spoken_cardinal(m)
        # written on the hour: "twenty to five" -> 04:40
        name = "to_%d" % m
        r.append(rule(name, [token(w, "%02d\\:%02d" % ((n - 2) % 12 + 1, 60 - m))
                             for w, n in hours if 1 <= n <= 12], True, per_line=4))
        minutes_word = "" if m in (15, 30) else " [minutes: | minute:]"
        to_forms.append('"%s:"%s to: <%s>' % (spoken, minutes_word, name)
                        if " " in spoken else "%s:%s to: <%s>" % (spoken, minutes_word, name))
    past = ["[a:] quarter: past: <hour12> :@@\\:15", "half: past: <hour12> :@@\\:30"]
    past += ["%s [minutes: | minute:] past: <hour12> :@@\\:%02d" %
             ('"%s:"' % spoken_cardinal(m) if " " in spoken_cardinal(m) else spoken_cardinal(m) + ":",
              m) for m in range(1, 60) if m not in (15, 30)]
    suffixes = "[<ampm>] [<zone>]"
    r.append(rule("time", [
        "<hour> <minute> (<ampm> | <zone>) [<zone>]",
        "<hour> <oh_minute> (<ampm> | <zone>) [<zone>]",
        "<hour_oh> <oh_minute>",
        "<hour> \"o'clock:@@\\\\:00\" %s" % suffixes,
        "<hour12> :@@\\:00 <ampm> [<zone>]",
        "(%s) %s" % (" | ".join(past), suffixes),
        "(%s) %s" % (" | ".join(to_forms), suffixes)], True, per_line=1))
    grammar("time", "".join(r), ["numbers"])


def dates():
    r = []
    days = []
    for n in range(1, 32):
        days.append(token(spoken_ordinal(n), str(n)))
        days.append(token(spoken_cardinal(n), str(n)))
    r.append(rule("day", days, True, per_line=6))
    r.append(rule("month", MONTHS, True, per_line=6))
    # Years: "two thousand twelve", pairs ("nineteen oh five", "twenty twelve"), and "nineteen
    # hundred"; the first output plain, the rest attached.
    r.append(rule("year_high", [token(spoken_cardinal(n), str(n)) for n in range(11, 21)], True,
                  per_line=6))
    r.append(rule("year_low", ['"oh %s:@@0%d"' % (u, i + 1) for i, u in enumerate(UNITS)] +
                  ["<two_digit>", "hundred:@@00"], True))
    r.append(rule("year", ["<year_high> <year_low>", "\"two thousand:2000\"",
                           "\"two thousand:20\" [and:] (:@@0 <digit> | <two_digit>)",
                           "\"one thousand:1\" [and:] <pad3>"], True, per_line=1))
    decades = []
    for n in range(11, 21):
        for d in range(2, 10):
            decades.append(token("%s %sies" % (spoken_cardinal(n), TENS[d - 2][:-1]),
                                 "%d%d0s" % (n, d)))
        decades.append(token("%s hundreds" % spoken_cardinal(n), "%d00s" % n))
    decades += [token("two thousands", "2000s")]
    r.append(rule("decade", decades, True, per_line=3))
    r.append(rule("date", [
        "<month> [the:] <day> [[comma:] <year>]",
        "[the:] <day> of: <month> [[comma:] <year>]",
        "<month> <year>",
        "<decade>",
        "<year_high> <year_low>"], True, per_line=1))
    grammar("date", "".join(r), ["numbers"])


UNITS_OF_MEASURE = [
    ("kilometers per hour", "km/h"), ("kilometer per hour", "km/h"), ("miles per hour", "mph"),
    ("mile per hour", "mph"), ("meters per second", "m/s"), ("meter per second", "m/s"),
    ("kilometers", "km"), ("kilometer", "km"), ("meters", "m"), ("meter", "m"),
    ("centimeters", "cm"), ("centimeter", "cm"), ("millimeters", "mm"), ("millimeter", "mm"),
    ("square meters", "m²"), ("square meter", "m²"), ("square kilometers", "km²"),
    ("square kilometer", "km²"), ("square feet", "sq ft"), ("square foot", "sq ft"),
    ("square miles", "sq mi"), ("cubic meters", "m³"), ("cubic meter", "m³"),
    ("cubic centimeters", "cm³"), ("kilograms", "kg"), ("kilogram", "kg"), ("grams", "g"),
    ("gram", "g"), ("milligrams", "mg"), ("milligram", "mg"), ("liters", "l"), ("liter", "l"),
    ("milliliters", "ml"), ("milliliter", "ml"), ("miles", "mi"), ("mile", "mi"),
    ("feet", "ft"), ("foot", "ft"), ("inches", "in"), ("inch", "in"), ("yards", "yd"),
    ("yard", "yd"), ("ounces", "oz"), ("ounce", "oz"), ("tons", "t"), ("ton", "t"),
    ("degrees celsius", "°C"), ("degree celsius", "°C"), ("degrees fahrenheit", "°F"),
    ("degree fahrenheit", "°F"), ("degrees", "°"), ("degree", "°"),
    ("kilobytes", "KB"), ("megabytes", "MB"), ("gigabytes", "GB"), ("terabytes", "TB"),
    ("hertz", "Hz"), ("kilohertz", "kHz"), ("megahertz", "MHz"), ("gigahertz", "GHz"),
    ("volts", "V"), ("volt", "V"), ("watts", "W"), ("watt", "W"), ("kilowatts", "kW"),
    ("kilowatt", "kW"), ("kilowatt hours", "kWh"), ("kilowatt hour", "kWh"), ("milliseconds", "ms"),
    ("millisecond", "ms"), ("kilobits per second", "kbps"), ("megabits per second", "Mbps"),
]


def measures():
    r = []
    r.append(rule("unit", [token(s, w) for s, w in UNITS_OF_MEASURE], True, per_line=3))
    number = "([minus:-] <positive> [<fraction>] | zero:@@0 <fraction> | point:. <frac_digit>+)"
    r.append(rule("measure", [
        "%s <unit>" % number,
        "%s (percent:@@%% | \"per cent:@@%%\")" % number], True, per_line=1))
    grammar("measure", "".join(r), ["numbers", "decimal"])


def telephone():
    r = []
    digit = [token(w, "@@%d" % (i + 1)) for i, w in enumerate(UNITS)] + \
        ["zero:@@0", "oh:@@0", "o:@@0"]
    r.append(rule("phone_digit", digit, True, per_line=6))
    doubles = []
    triples = []
    for w, d in [(w, str(i + 1)) for i, w in enumerate(UNITS)] + [("zero", "0"), ("oh", "0")]:
        doubles.append('"double %s:@@%s"' % (w, d * 2))
        triples.append('"triple %s:@@%s"' % (w, d * 3))
    r.append(rule("phone_double", doubles, True, per_line=4))
    r.append(rule("phone_triple", triples, True, per_line=4))

    def group(n):
        """Digit sequences of exactly n digits, doubles and triples counted."""
        if n == 0:
            return [[]]
        out = []
        for size, name in ((1, "<phone_digit>"), (2, "<phone_double>"), (3, "<phone_triple>")):
            if size <= n:
                out += [[name] + rest for rest in group(n - size)]
        return out

    for n in (3, 4):
        r.append(rule("phone_group%d" % n, [" ".join(g) for g in group(n)], True))
    r.append(rule("telephone", [
        "[\"plus:+\" <phone_digit>+ \":@@ \"] <phone_group3> :@@- <phone_group3> :@@- "
        "<phone_group4>",
        "\"plus:+\" <to999> \":@@ \" <phone_group3> :@@- <phone_group3> :@@- <phone_group4>",
        "<phone_group3> :@@- <phone_group4>",
        "<hundreds> \":@@ \" <phone_group3> :@@- <phone_group4>"], True, per_line=1))
    grammar("telephone", "".join(r), ["numbers"])


LETTERS = "abcdefghijklmnopqrstuvwxyz"
DOMAINS = ["gmail", "yahoo", "hotmail", "outlook", "example", "icloud", "aol", "protonmail",
           "mail", "company", "google", "microsoft", "apple", "amazon", "github", "nvidia"]
TLDS = ["com", "org", "net", "edu", "gov", "io", "co", "uk", "de", "fr", "in", "ai", "us"]


def electronic():
    r = []
    r.append(rule("octet", ["<to999>", "<phone_digit>", "<phone_digit> <phone_digit>",
                            "<phone_digit> <phone_digit> <phone_digit>"], True))
    r.append(rule("ip", ["<octet> dot:@@. <octet> dot:@@. <octet> dot:@@. <octet>"], True))
    r.append(rule("letter", [token(l, "@@" + l) for l in LETTERS], True, per_line=9))
    # A spelt letter of the name before "at" reads the blank after it: words run together by
    # letters ("send" as s e n d) would otherwise make the sentence before part of the address.
    r.append(rule("spelt", ['"%s :@@%s"' % (l, l) for l in LETTERS], True, per_line=9))
    r.append(rule("name_part", ["<spelt>+", "<domain>", "<spelt>+ <phone_digit>+"], True))
    r.append(rule("domain", [token(d, "@@" + d) for d in DOMAINS], True, per_line=6))
    r.append(rule("tld", [token(t, "@@" + t) for t in TLDS], True, per_line=9))
    r.append(rule("email", [
        "<name_part> ((dot:@@. | underscore:@@_ | dash:@@- | hyphen:@@-) <name_part>)* "
        "at:@@@ (<domain> | <letter>+) (dot:@@. <tld>)+"], True, per_line=1))
    r.append(rule("url", ["(www:www dot:@@. | \"w w w:www\" dot:@@.) (<domain> | <letter>+) "
                          "(dot:@@. <tld>)+"], True, per_line=1))
    grammar("electronic", "".join(r), ["numbers", "telephone"])


# Only words that are rarely meant otherwise: "street" or "company" stay words.
ABBREVIATIONS = [
    ("doctor", "dr."), ("mister", "mr."), ("missus", "mrs."), ("professor", "prof."),
    ("for example", "e.g."), ("that is to say", "i.e."), ("et cetera", "etc."),
    ("versus", "vs."), ("incorporated", "inc."), ("limited", "ltd."),
]


def whitelist():
    r = []
    r.append(rule("abbreviation", [token(s, w) for s, w in ABBREVIATIONS], True, per_line=4))
    grammar("whitelist", "".join(r))


def entry():
    # Weights settle readings of the same words: a lone "one" stays a word; "five million" is
    # a decimal ("5 million") before it is a cardinal.
    body = """// English inverse text normalisation: "nine twenty five a m" -> "09:25 a.m.".
// Apply with: t2sfst apply --rewrite --ignore-case itn.t2s < transcript.txt
public <itn> =
      /1000/ <keep>
    | /10/ <time> | /10/ <date> | /10/ <money> | /10/ <measure> | /10/ <telephone>
    | /10/ <ip> | /10/ <email> | /10/ <url> | /8/ <decimal> | /6/ <ordinal> | /5/ <cardinal>
    | /5/ <abbreviation>;

// A lone "one" is usually the pronoun or the article's kin, not a number.
<keep> = one;
"""
    grammar("itn", body, ["numbers", "ordinal", "decimal", "money", "time", "date", "measure",
                          "telephone", "electronic", "whitelist"])


if __name__ == "__main__":
    numbers()
    ordinals()
    decimals()
    money()
    times()
    dates()
    measures()
    telephone()
    electronic()
    whitelist()
    entry()
