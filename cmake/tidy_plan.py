"""tidy_plan.py ROOT FOLDER CONFIG ...: from FOLDER/compile_commands.json, FOLDER/build.ninja, which runs clang-tidy over
every source, again only when it, what it includes or a configuration has changed."""
import json
import pathlib
import sys

root, folder = map(pathlib.Path, sys.argv[1:3])
configs = " ".join(sys.argv[3:])
database = folder / "compile_commands.json"
entries = json.loads(database.read_text())
plan = ["""\
rule tidy
  command = clang-tidy --quiet -p . $in >$out.log 2>&1 && $compile -MM -MT $out -MF $out.d $in && touch $out $
    || { grep -E "(error|warning):" $out.log | sort -u; exit 1; }
  depfile = $out.d
  deps = gcc
  description = tidy $in
"""]
done = set()
for entry in entries:
    # Of g++ alone.
    entry["command"] = entry["command"].replace(" -femit-class-debug-always", "")
    source = pathlib.Path(entry["file"])
    if source in done or not source.is_relative_to(root) or source.is_relative_to(folder):
        continue
    done.add(source)
    compile_only = entry["command"].split(" -o ")[0].replace("$", "$$")
    name = str(source.relative_to(root)).replace("/", "_")
    plan.append(f"build {name}: tidy {source} | {configs}\n  compile = {compile_only}\n")
database.write_text(json.dumps(entries))
(folder / "build.ninja").write_text("".join(plan))
