"""Tags and pictures, written and read by mutagen."""
import json
import re
from pathlib import Path

import mutagen
import numpy
import pytest
from audio_files import ffmpeg
from mutagen import apev2, flac, id3, mp4

# TagLib's fields, each with its atom in MP4 files (freeform in brackets) and its frame in ID3v2 (TXXX in brackets). An
# omitted atom or frame is freeform or TXXX with the name of the field. Fields marked with + get a second value.
FIELDS = """
TITLE+ ©nam TIT2|ARTIST+ ©ART TPE1|ALBUM+ ©alb TALB|ALBUMARTIST+ aART TPE2|COMPOSER+ ©wrt TCOM|GENRE+ ©gen TCON
DATE ©day TDRC|COPYRIGHT+ cprt TCOP|COMMENT ©cmt COMM|DESCRIPTION+ desc|LYRICS ©lyr USLT|GROUPING+ ©grp GRP1
TRACKNUMBER trkn TRCK|DISCNUMBER disk TPOS|BPM tmpo TBPM|COMPILATION cpil TCMP|LONGDESCRIPTION ldes
TITLESORT+ sonm TSOT|ARTISTSORT+ soar TSOP|ALBUMSORT+ soal TSOA|ALBUMARTISTSORT+ soaa TSO2|COMPOSERSORT+ soco TSOC
MOVEMENTNAME+ ©mvn MVNM|WORK+ ©wrk|MOVEMENTNUMBER ©mvi MVIN|MOVEMENTCOUNT ©mvc|SHOWWORKMOVEMENT shwm
TVSHOW tvsh|TVSHOWSORT|TVEPISODE tves|TVSEASON tvsn|TVNETWORK tvnn|TVEPISODEID tven|SHOWSORT sosn|GAPLESSPLAYBACK pgap
PODCASTID egid TGID|PODCASTCATEGORY catg TCAT|PODCASTURL purl WFED
SUBTITLE+ [SUBTITLE] TIT3|DISCSUBTITLE+ [DISCSUBTITLE] TSST|LYRICIST+ [LYRICIST] TEXT|CONDUCTOR+ [CONDUCTOR] TPE3
REMIXER+ [REMIXER] TPE4|LABEL+ [LABEL] TPUB|MOOD+ [MOOD] TMOO|MEDIA+ [MEDIA] TMED|ISRC+ [ISRC] TSRC
LANGUAGE [LANGUAGE] TLAN|ORIGINALDATE [originaldate] TDOR|INITIALKEY [initialkey] TKEY|OWNER [OWNER] TOWN
ORIGINALALBUM [ORIGINALALBUM] TOAL|ORIGINALARTIST+ [ORIGINALARTIST] TOPE|ORIGINALLYRICIST [ORIGINALLYRICIST] TOLY
RELEASEDATE [RELEASEDATE] TDRL|RADIOSTATION [RADIOSTATION] TRSN|PRODUCEDNOTICE [PRODUCEDNOTICE] TPRO
ARTISTWEBPAGE [ARTISTWEBPAGE] WOAR|COPYRIGHTURL [COPYRIGHTURL] WCOP|PUBLISHERWEBPAGE [PUBLISHERWEBPAGE] WPUB
REPLAYGAIN_TRACK_GAIN [replaygain_track_gain]|REPLAYGAIN_TRACK_PEAK [replaygain_track_peak]
REPLAYGAIN_ALBUM_GAIN [replaygain_album_gain]|REPLAYGAIN_ALBUM_PEAK [replaygain_album_peak]
ASIN|BARCODE|CATALOGNUMBER|SCRIPT|LICENSE|ENGINEER+|PRODUCER+|DJMIXER|MIXER|ARRANGER+|MY OWN+|ARTISTS+
ACOUSTID_ID [Acoustid Id] [Acoustid Id]|ACOUSTID_FINGERPRINT [Acoustid Fingerprint] [Acoustid Fingerprint]
MUSICBRAINZ_TRACKID [MusicBrainz Track Id]|MUSICBRAINZ_ALBUMID [MusicBrainz Album Id] [MusicBrainz Album Id]
MUSICBRAINZ_ARTISTID+ [MusicBrainz Artist Id] [MusicBrainz Artist Id]
MUSICBRAINZ_ALBUMARTISTID [MusicBrainz Album Artist Id] [MusicBrainz Album Artist Id]
MUSICBRAINZ_RELEASEGROUPID [MusicBrainz Release Group Id] [MusicBrainz Release Group Id]
MUSICBRAINZ_RELEASETRACKID [MusicBrainz Release Track Id] [MusicBrainz Release Track Id]
MUSICBRAINZ_WORKID [MusicBrainz Work Id] [MusicBrainz Work Id]
RELEASECOUNTRY [MusicBrainz Album Release Country] [MusicBrainz Album Release Country]
RELEASESTATUS [MusicBrainz Album Status] [MusicBrainz Album Status]
RELEASETYPE+ [MusicBrainz Album Type] [MusicBrainz Album Type]
"""
NUMBERS = {"BPM": 120, "MOVEMENTNUMBER": 2, "MOVEMENTCOUNT": 4, "SHOWWORKMOVEMENT": 1, "TVEPISODE": 7, "TVSEASON": 3}
SWITCHES = ("COMPILATION", "GAPLESSPLAYBACK")
PAIRS = {"TRACKNUMBER": (3, 12), "DISCNUMBER": (1, 2)}


def table():
    """Yields field, atom, frame, values as text, and values as mutagen represents them in MP4 files."""
    for cell in FIELDS.replace("\n", "|").strip("|").split("|"):
        field, several, atom, frame = re.fullmatch(r"(MY OWN|\w+)(\+?) ?(\[.*?\]|\S*) ?(\[.*\]|\S*)", cell).groups()
        values = [f"{field} ä"] + ["second"] * bool(several)
        atom = atom or f"[{field}]"
        atom = f"----:com.apple.iTunes:{atom[1:-1]}" if atom[0] == "[" else atom
        stored = [value.encode() for value in values] if atom[0] == "-" else values
        if field in NUMBERS:
            values, stored = [str(NUMBERS[field])], [NUMBERS[field]]
        elif field in SWITCHES:
            values, stored = ["1"], True
        elif field in PAIRS:
            values, stored = ["{}/{}".format(*PAIRS[field])], [PAIRS[field]]
        elif "DATE" in field:
            values, stored = ["1999-12-31"], [b"1999-12-31" if atom[0] == "-" else "1999-12-31"]
        yield field, atom, frame, values, stored


def make(name, *options):
    ffmpeg("-f", "lavfi", "-i", "sine=d=0.2", *(["-c:a", "alac"] if name.endswith("m4a") else []), *options, name)
    file = mutagen.File(name)
    if file.tags is None:
        file.add_tags()
    file.tags.clear()
    return file


def read(path="x.m4a"):
    """Tags of an output, without those that every output has."""
    tags = {key: value for key, value in mp4.MP4(path).tags.items()}
    assert tags.pop("©too")[0].startswith("Tavik ")
    tags.pop("----:com.apple.iTunes:iTunSMPB", None)
    return {key: value if isinstance(value, bool) else list(value) for key, value in tags.items()}


def add_frame(tags, field, frame, values):
    if frame in ("COMM", "USLT"):
        tags.add(getattr(id3, frame)(encoding=3, lang="eng", desc="", text=values[0]))
    elif frame and frame[0] == "W":  # the URL of podcasts is really a text, with its encoding in front
        tags.add(getattr(id3, frame)(url=(frame == "WFED") * "\0" + values[0]))
    elif frame and frame[0] != "[":
        tags.add(getattr(id3, frame)(encoding=3, text=values))
    else:
        tags.add(id3.TXXX(encoding=3, desc=frame[1:-1] if frame else field, text=values))


@pytest.mark.parametrize("kind", ["flac", "ogg", "opus", "mp3", "m4a", "wv"])
@pytest.mark.parametrize("piped", [False, True])
def test_every_field_that_taglib_knows(tavik, kind, piped):
    file = make(f"in.{kind}")
    expected = {}
    for field, atom, frame, values, stored in table():
        if kind == "mp3":
            add_frame(file.tags, field, frame, values)
        else:
            file.tags[atom if kind == "m4a" else field] = stored if kind == "m4a" else values
        expected[atom] = stored
    file.save()
    tavik.encode(f"in.{kind}", "-q", "-o", "-" if piped else "x.m4a", within='"$@" >x.m4a' if piped else None)
    assert read() == expected


def picture(name):
    if not Path(name).exists():
        ffmpeg("-f", "lavfi", "-i", "testsrc=s=32x32", "-frames:v", "1", name)
    return Path(name).read_bytes()


def encoded(tavik, *arguments):
    """The JSON object of an encoded file; its warnings must be those on standard error."""
    run = tavik.run(*arguments, "--json", "--no-progress")
    event = json.loads(run.out[0])
    assert [line.partition(": warning: ")[2] for line in run.err] == event["warnings"]
    return event


def freeform(**fields):
    return {f"----:com.apple.iTunes:{name.replace('_SLASH_', '/')}": [value.encode() for value in values.split("|")]
            for name, values in fields.items()}


# Format of the source, its tags, arguments, expected tags of the output, beginnings of expected warnings.
CHANGES = [
    ("mp3", [id3.POPM(email="a@b", rating=196, count=5)], "", freeform(RATING="80", PLAYCOUNT="5"), ["tags changed: "]),
    ("mp3", [id3.PRIV(owner="x", data=b"1"), id3.GEOB(encoding=3, mime="a/b", desc="d", data=b"x"),
             id3.TALB(encoding=3, text="B")], "", {"©alb": ["B"]}, ["tags that M4A cannot keep: PRIV, GEOB"]),
    ("mp3", [id3.PRIV(owner="x", data=b"1"), id3.TALB(encoding=3, text="B")], "--no-tags", {}, []),
    ("mp3", [id3.TIPL(encoding=3, people=[["producer", "P"], ["mix", "M"]]), id3.TRCK(encoding=3, text="A1"),
             id3.TMCL(encoding=3, people=[["violin", "V"]]), id3.TBPM(encoding=3, text="128.5"),
             id3.UFID(owner="http://musicbrainz.org", data=b"id"), id3.TSSE(encoding=3, text="x")], "",
     {"tmpo": [128], "----:com.apple.iTunes:MusicBrainz Track Id": [b"id"],
      **freeform(PRODUCER="P", MIXER="M", PERFORMER_SLASH_VIOLIN="V", TRACKNUMBER="A1", BPM="128.5")}, []),
    ("flac", {"TRACK": "03", "TRACKTOTAL": "12", "DISCTOTAL": "2", "YEAR": "1999", "ALBUM_ARTIST": "A", "ENCODER": "x"},
     "", {"trkn": [(3, 12)], "disk": [(0, 2)], "©day": ["1999"], "aART": ["A"]}, []),
    ("opus", {"R128_TRACK_GAIN": "-512", "R128_ALBUM_GAIN": "256"}, "",
     freeform(replaygain_track_gain="+3.00 dB", replaygain_album_gain="+6.00 dB"), []),
    ("wv", {"REPLAYGAIN_TRACK_GAIN": "-6.5 dB", "REPLAYGAIN_TRACK_PEAK": "0.5"}, "--gain -20",
     freeform(replaygain_track_gain="+13.50 dB", replaygain_track_peak="0.050000"), []),
    ("wv", {"Year": "1999", "bin": apev2.APEValue(b"\0\1", apev2.BINARY)}, "", {"©day": ["1999"]},
     ["tags that M4A cannot keep: BIN"]),
    ("m4a", {"stik": [1], "----:com.apple.iTunes:My Own": [b"x"], "----:org.other:x": [b"y"], "pcst": True,
             "----:com.apple.iTunes:iTunSMPB": [b"0"]}, "",
     {"stik": [1], "----:com.apple.iTunes:My Own": [b"x"], "----:org.other:x": [b"y"], "pcst": True}, []),
    ("m4a", {"----:com.apple.iTunes:My Own": [b"x"], "©ART": ["A"], "©alb": ["B"], "trkn": [(1, 9)]},
     "--tag mY_oWN=1 --tag artist= --artist C --tag ARTIST=D --album-artist E --tag track=2 --tag album= --date 1999",
     {"----:com.apple.iTunes:MY OWN": [b"1"], "©ART": ["C", "D"], "aART": ["E"], "trkn": [(2, 9)], "©day": ["1999"]}, []),
    ("mka", {"title": "T", "album_artist": "A", "track": "3", "foo": "bar"}, "",
     {"©nam": ["T"], "aART": ["A"], "trkn": [(3, 0)], **freeform(FOO="bar")}, []),
    ("wav", {"title": "T", "artist": "A", "comment": "c"}, "", {"©nam": ["T"], "©ART": ["A"], "©cmt": ["c"]}, []),
]


@pytest.mark.parametrize("kind,tags,arguments,expected,warnings", CHANGES, ids=range(len(CHANGES)))
def test_tags_that_are_changed_or_cannot_be_kept(tavik, kind, tags, arguments, expected, warnings):
    if kind in ("mka", "wav"):
        ffmpeg("-f", "lavfi", "-i", "sine=d=0.2", *[part for item in tags.items()
                                                    for part in ("-metadata", "=".join(item))], f"in.{kind}")
    else:
        file = make(f"in.{kind}")
        for tag in tags:
            file.tags.add(tag) if kind == "mp3" else file.tags.__setitem__(tag, tags[tag])
        file.save()
    arguments = [argument.replace("mY_", "mY ") for argument in arguments.split()]
    event = encoded(tavik, f"in.{kind}", "-o", "x.m4a", *arguments)
    assert read() == expected
    assert len(event["warnings"]) == len(warnings)
    assert all(actual.startswith(warning) for actual, warning in zip(event["warnings"], warnings))
    assert all(name in str(event["warnings"]) for name in event["not_kept"])


def test_pictures(tavik):
    """The front cover comes first; formats other than JPEG, PNG, BMP and GIF become PNG."""
    file = make("in.mp3")
    for kind, name in ((4, "c.jpg"), (3, "c.webp"), (5, "c.gif")):
        mime = f"image/{name[2:].replace('jpg', 'jpeg')}"
        file.tags.add(id3.APIC(encoding=3, mime=mime, type=kind, desc=name, data=picture(name)))
    file.save()
    for output, within in (("x.m4a", None), ("-", '"$@" >x.m4a')):
        run = tavik.run("in.mp3", "-q", "-f", "-o", output, within=within)
        assert run.err == ["tavik: in.mp3: warning: tags changed: a picture from WEBP to PNG"]
        front, *others = mp4.MP4("x.m4a")["covr"]
        assert {bytes(other) for other in others} == {picture("c.jpg"), picture("c.gif")}
        Path("front.png").write_bytes(front)
        pixels = [numpy.frombuffer(ffmpeg("-i", name, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"), "B").astype(int)
                  for name in ("front.png", "c.webp")]
        assert numpy.abs(pixels[0] - pixels[1]).mean() < 10
    tavik.encode("in.mp3", "-f", "-o", "x.m4a", "--no-cover")
    assert "covr" not in mp4.MP4("x.m4a")
    tavik.encode("in.mp3", "-f", "-o", "x.m4a", "--cover", "c.gif")
    assert sorted(mp4.MP4("x.m4a")["covr"]) == sorted([picture("c.gif"), picture("c.jpg"), picture("c.gif")])
    Path("text.jpg").write_bytes(b"text" * 1000)
    for name in ("text.jpg", "missing.jpg"):
        tavik.refuse(2, f"{name}: ", "in.mp3", "-o", "new.m4a", "--cover", name)
    tavik.refuse(2, "--tag: text is not UTF-8", "in.mp3", "-o", "new.m4a", within='"$@" --title $\'\\xe4\'')


def test_outputs_without_tags_name_them_in_json_only(tavik):
    file = make("in.flac")
    file["TITLE"] = "T"
    cover = flac.Picture()
    cover.type, cover.mime, cover.data = 3, "image/png", picture("c.png")
    file.add_picture(cover)
    file.save()
    event = encoded(tavik, "in.flac", "--adts")
    assert (event["warnings"], event["not_kept"]) == ([], ["TITLE", "pictures"])


def test_broken_tags_do_not_prevent_encoding(tavik):
    """Some bytes of the tags are overwritten: what can be decoded is encoded, and nothing else is printed."""
    for kind in ("flac", "mp3", "ogg", "wv", "m4a"):
        file = make(f"in.{kind}")
        file.tags.add(id3.TIT2(encoding=3, text="title" * 50)) if kind == "mp3" else \
            file.tags.__setitem__("©nam" if kind == "m4a" else "TITLE", "title" * 50)
        file.save()
        data = Path(f"in.{kind}").read_bytes()
        place = data.index(b"titletitle")
        for step in (1, 3, 8):
            Path(f"in.{kind}").write_bytes(data[:place - step] + b"\xff" * step + data[place:])
            run = tavik.run(f"in.{kind}", "-f", "-q", "-o", "x.m4a")
            assert (run.status in (0, 3), run.status == 0 or kind != "mp3") == (True, True), (kind, step, run)
