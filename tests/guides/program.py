"""program.py GUIDE SOURCE: writes the program that the snippets of a guide make, for tests/readme.py to judge what it prints.

Paragraphs that begin with a declaration stand outside of functions, the others one after another in main. A statement
"expression; // text" whose expression is a text must give that text.
"""
import pathlib
import re
import sys

DECLARATION = re.compile(r"(struct|class|enum|template|namespace|using|std::string_view \w+\()")
PROMISE = re.compile(r"^(?P<expression>[^=\n]+\)); +// (?P<text>.*)$", re.M)

START = """#include <Tessarin/Tessarin.h>
#include <cstdlib>
#include <map>
using namespace Tessarin;

template <class T> void promise(T const& value, std::string_view text) {
    if constexpr (std::is_convertible_v<T, std::string_view>)
        if (std::string_view(value) != text) {
            print("the guide promises " + std::string(text) + ", but it is " + std::string(value));
            std::exit(1);
        }
}

"""

guide, source = map(pathlib.Path, sys.argv[1:])
outside, inside = [], []
for block in re.findall(r"```cpp\n(.*?)```", guide.read_text(), re.S):
    for paragraph in block.strip().split("\n\n"):
        if "#include" in paragraph:
            continue
        (outside if DECLARATION.match(paragraph) else inside).append(paragraph)
body = PROMISE.sub(lambda found: f'promise({found["expression"]}, R"promised({found["text"]})promised");', "\n\n".join(inside))
source.write_text(START + "\n\n".join(outside) + "\n\nint main() {\n" + body + "\n}\n")
