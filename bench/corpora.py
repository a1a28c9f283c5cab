"""The real code the index is measured on: packages from Debian and npm, installed on demand into
~/.cache/orvane-tamblo/corpora, shared by bench/index-quality and bench/index-bench."""
import os
import pathlib
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "orvane-tamblo" / "corpora"


def run(cmd, **kw):
    return subprocess.run(cmd, check=True, **kw)


def private_apt(work):
    """An apt configuration holding the machine's archive entries as source entries, in `work`, so
    that neither the system's sources nor its package lists change."""
    apt = work / "apt"
    (apt / "sources").mkdir(parents=True)
    (apt / "lists" / "partial").mkdir(parents=True)
    (apt / "cache" / "archives" / "partial").mkdir(parents=True)
    for f in pathlib.Path("/etc/apt/sources.list.d").glob("*.sources"):
        text = "".join("Types: deb-src\n" if l.startswith("Types:") else l
                       for l in f.read_text().splitlines(True))
        (apt / "sources" / f.name).write_text(text)
    for f in [pathlib.Path("/etc/apt/sources.list"), *pathlib.Path("/etc/apt/sources.list.d").glob("*.list")]:
        if f.exists():
            lines = [("deb-src " + l[4:]) for l in f.read_text().splitlines(True) if l.startswith("deb ")]
            (apt / "sources" / (f.name + ".list")).write_text("".join(lines))
    opts = ["-o", "Dir::Etc::SourceList=/dev/null", "-o", f"Dir::Etc::SourceParts={apt}/sources",
            "-o", f"Dir::State::Lists={apt}/lists", "-o", f"Dir::Cache={apt}/cache",
            "-o", "APT::Sandbox::User=" + os.environ.get("USER", "root")]
    run(["apt-get", "-qq", *opts, "update"])
    return opts


def apt_install(*packages):
    missing = [p for p in packages if subprocess.run(
        ["dpkg-query", "-W", "-f=${Status}", p], capture_output=True, text=True).stdout != "install ok installed"]
    if missing:
        run([str(ROOT / "scripts" / "install-deps"), *missing])


def publish(fill, dest):
    """Fills a fresh directory with `fill` and moves it to `dest`, so a cut run leaves nothing half."""
    if dest.exists():
        return dest
    dest.parent.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=dest.parent) as work:
        out = pathlib.Path(work) / "out"
        out.mkdir()
        fill(pathlib.Path(work), out)
        out.rename(dest)
    return dest


def debian_source(package):
    def fill(work, out):
        opts = private_apt(work)
        run(["apt-get", "-qq", *opts, "source", "--download-only", package], cwd=out,
            stdout=subprocess.DEVNULL)
        dsc = next(out.glob("*.dsc"))
        run(["dpkg-source", "-q", "--no-check", "-x", dsc.name, "src"], cwd=out, stdout=subprocess.DEVNULL)
        for f in out.iterdir():
            if f.is_file():
                f.unlink()
    apt_install("dpkg-dev")
    return publish(fill, CACHE / f"debian-src-{package}") / "src"


def npm_package(package):
    def fill(work, out):
        run(["npm", "install", "--ignore-scripts", "--no-audit", "--no-fund", "--loglevel=error",
             "--prefix", str(out), package], stdout=subprocess.DEVNULL)
    return publish(fill, CACHE / ("npm-" + package.replace("/", "_").replace("@", "_")))


# Each corpus: our language, ctags's name for it, where it comes from, the file names it covers.
def corpora():
    return {
        "python": ("Python", lambda: pathlib.Path("/usr/lib/python3.11"), (".py",)),
        "javascript": ("JavaScript", lambda: npm_package("express@4.21.2") / "node_modules", (".js",)),
        "typescript": ("TypeScript", lambda: npm_package("rxjs@7.8.1") / "node_modules" / "rxjs" / "src", (".ts",)),
        "go": ("Go", lambda: (apt_install("golang-src"), pathlib.Path("/usr/share/go-1.19/src"))[1], (".go",)),
        "rust": ("Rust", lambda: (apt_install("librust-regex-dev"), pathlib.Path("/usr/share/cargo/registry"))[1], (".rs",)),
        "java": ("Java", lambda: debian_source("libcommons-lang3-java"), (".java",)),
        "c": ("C", lambda: debian_source("lua5.4"), (".c",)),
        "cpp": ("C++", lambda: (apt_install("libgtest-dev"), pathlib.Path("/usr/src/googletest"))[1],
                (".cc", ".h", ".cpp", ".hpp")),
    }


def files_of(root, suffixes):
    out = []
    for dirpath, dirnames, filenames in os.walk(root):
        # Hidden directories hold copies (a source package's .pc holds the unpatched files).
        dirnames[:] = sorted(d for d in dirnames if not d.startswith("."))
        for name in sorted(filenames):
            path = os.path.join(dirpath, name)
            # Type declarations are not definitions ctags reads as TypeScript; the index skips
            # minified files.
            if (name.endswith(suffixes) and not name.endswith((".d.ts", ".min.js"))
                    and not os.path.islink(path)):
                out.append(os.path.relpath(path, root))
    return out


def copy_files(root, files, dest):
    """Copies `files` (relative to `root`) into `dest`: a repository of the corpus that the index may
    write into (the corpora live in system and cache directories)."""
    dest = pathlib.Path(dest)
    for f in files:
        (dest / f).parent.mkdir(parents=True, exist_ok=True)
        with open(os.path.join(root, f), "rb") as src, open(dest / f, "wb") as out:
            out.write(src.read())
    return dest
