"""What tests/collector/page looks at: COLLECTOR SCRATCH [PICTURES]."""
import atexit, base64, hashlib, json, os, re, subprocess, sys, urllib.error, urllib.request, zlib

HOSTILE = "</td><script>alert(1)</script><img src=x onerror=alert(2)>\"'&lt;\x00\x1b[31m\x7f\u202e\u2028"
SHOWN = HOSTILE.replace("\x00", "\ufffd")  # no database takes the character 0
SEEN = re.sub("[\x00-\x1f\x7f\u202e\u2028]", lambda c: "\\u{%x}" % ord(c[0]), SHOWN)


def ask(url, body=None, **headers):
    headers = {name.replace("_", "-"): value for name, value in headers.items()}
    try:
        with urllib.request.urlopen(urllib.request.Request(url, body, headers)) as answer:
            return answer.status, answer.read()
    except urllib.error.HTTPError as refused:
        return refused.code, refused.read()


def report(uid, content, count=1, module=7):
    return {"_ID": 1, "module": module, "type": 1, "aggregationid": 0, "count": count, "size": len(content), "uid": uid,
            "SHA256": hashlib.sha256(content).hexdigest(), "encoding": "deflate+base64", "clock": HOSTILE,
            "content": base64.b64encode(zlib.compress(content)).decode(), "first_time": 1, "last_time": 2**62}


def post(path, *reports):
    facts = "config_ver DUID vendor manufacturer product_type DTV_type sw_version_model sw_version platform_name tizen_version"
    header = {**dict.fromkeys(facts.split(), HOSTILE), "ver": "1.2.0", "datetime": "2026-11-24T21:05:59"}
    body = json.dumps({"header": header, "body": reports}).encode()
    return ask(reports_at + path, body, Content_Type="application/json", X_Client_Subject=HOSTILE.translate({c: None for c in range(32)}).encode())


def end(process):
    process.terminate()
    process.wait()


class Browser:
    """Chromium by its debugging pipe. Whatever it complains of fails the test, and so does a dialog."""

    def __init__(self, profile):
        (read, its_write), (its_read, write) = os.pipe(), os.pipe()
        start = f"exec chromium --headless --no-sandbox --disable-gpu --user-data-dir={profile} --remote-debugging-pipe " \
                f"about:blank 3<&{its_read} 4>&{its_write} 2>{profile}.log"
        self.process = subprocess.Popen(["bash", "-c", start], pass_fds=(its_read, its_write), close_fds=True)
        atexit.register(end, self.process)
        os.close(its_read), os.close(its_write)
        self.answers, self.commands, self.number, self.session = os.fdopen(read, "rb"), os.fdopen(write, "wb"), 0, {}
        target = self.do("Target.createTarget", url="about:blank")["targetId"]
        self.session = {"sessionId": self.do("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]}
        for domain in ("Page", "Runtime", "Log"):
            self.do(domain + ".enable")

    def message(self):
        text = bytearray()
        while (byte := self.answers.read(1)) != b"\0":
            assert byte, "Chromium has ended"
            text += byte
        return json.loads(text)

    def do(self, method, **parameters):
        self.number += 1
        self.commands.write(json.dumps({"id": self.number, "method": method, "params": parameters, **self.session}).encode() + b"\0")
        self.commands.flush()
        while (got := self.message()).get("id") != self.number:
            complaint = got.get("method") in ("Page.javascriptDialogOpening", "Runtime.exceptionThrown", "Log.entryAdded")
            refused = got.get("params", {}).get("entry", {}).get("source") == "network"  # by the collector
            assert refused or not complaint, got["params"]
        assert "result" in got, got
        return got["result"]

    def value(self, expression):
        got = self.do("Runtime.evaluate", expression=expression, awaitPromise=True, returnByValue=True)
        assert "exceptionDetails" not in got, got
        return got["result"].get("value")

    def wait(self, condition):
        self.value(f"new Promise((done) => {{ const look = () => ({condition}) ? done() : setTimeout(look, 20); look(); }})")

    def picture(self, name):
        if len(sys.argv) > 3:
            os.makedirs(sys.argv[3], exist_ok=True)
            with open(f"{sys.argv[3]}/{name}.png", "wb") as file:
                size = {**self.do("Page.getLayoutMetrics")["cssContentSize"], "width": int(name.split("-")[0]), "scale": 1}
                picture = self.do("Page.captureScreenshot", captureBeyondViewport="dialog" not in name, **({} if "dialog" in name else {"clip": size}))
                file.write(base64.b64decode(picture["data"]))


collector = subprocess.Popen([sys.argv[1], "--plain", "--status", "0", "--page", "collector/page"], stdout=subprocess.PIPE, text=True)
atexit.register(end, collector)
page = "http://" + collector.stdout.readline().split()[-1]
reports_at = "http://" + collector.stdout.readline().split()[-1] + "/"

# Fields that a device can fill; a uid can have no blanks and no controls.
script_uid = "<script>alert(3)</script><svg/onload=alert(4)>'\"&amp;"
kept = [report(script_uid, HOSTILE.encode()), report("plain", "Zeile 1\n\tÄ\r\nline 2".encode(), 3, -5), report("bytes", bytes(range(256)), 2, 9)]
assert post("reports", *kept) == (200, b'{"body":[200,200,200]}')
assert post("reports", *kept[:1], report("'<b>", b"", 0)) == (200, b'{"body":[200,400]}')
assert post("<script>alert(5)</script>")[0] == 404

# Other sites: by their own name for this address, by a form, by a script.
port = page.rsplit(":", 1)[1]
answers, lines = page + "/answers", b'{"lines":["1 reports status=503"]}'
assert ask(page + "/reports", Host="attacker.example:" + port)[0] == 403
assert ask(page + "/health", Host="collector.example")[0] == 200
assert ask(answers, lines, Content_Type="text/plain")[0] == 415
assert ask(answers, lines, Content_Type="application/json", Origin="http://attacker.example")[0] == 403
assert ask(answers, lines, Content_Type="application/json", Origin="null")[0] == 403
assert b'"answers":[]' in ask(page + "/requests")[1]

browser = Browser(sys.argv[2] + "/profile")
for width, scheme in ((400, "light"), (400, "dark"), (1400, "light"), (1400, "dark")):
    browser.do("Emulation.setDeviceMetricsOverride", width=width, height=800, deviceScaleFactor=1, mobile=False)
    browser.do("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
    browser.do("Page.navigate", url=page)
    browser.wait("document.querySelectorAll('#reports tbody tr').length == 3 && document.querySelector('#hours canvas')")
    rows = browser.value("Object.fromEntries([...document.querySelectorAll('table[id]')].map((t) => [t.id, [...t.rows].slice(1).map((r) => [...r.cells].map((c) => c.textContent))]))")
    assert [row[1:] for row in rows["reports"] if row[1] == script_uid] == [[script_uid, SEEN, "7", "1", "1", str(len(HOSTILE.encode())), "1"]], rows
    assert rows["devices"][0][0] == SEEN and rows["devices"][0][3].count(SEEN) == 9, rows["devices"]
    assert [row[:2] for row in rows["repetitions"]] == [["1", script_uid]]
    assert [row[2] for row in rows["requests"]] == ["POST /<script>alert(5)</script>", "POST /reports", "POST /reports"]
    browser.picture(f"{width}-{scheme}")
    for uid, text, kind in ((script_uid, SEEN.replace("\\u{fffd}", "\x00"), "bytes"), ("plain", "Zeile 1\\u{d}\n\tÄ\nline 2", ""), ("bytes", None, "bytes")):
        browser.value(f"[...document.querySelectorAll('#reports button')].find((b) => b.textContent == {json.dumps(uid)}).click()")
        browser.wait("document.querySelector('#report[open] pre')")
        shown = browser.value("({text: document.querySelector('#report pre').textContent, kind: document.querySelector('#report pre').className, facts: document.querySelector('#report dl').textContent})")
        assert shown["kind"] == kind and SEEN in shown["facts"], shown
        browser.picture(f"{width}-{scheme}-dialog-{kind or 'text'}")
        wide = browser.value("[...document.querySelectorAll('html, .rows, #hours, #report')].filter((e) => e.scrollWidth > e.clientWidth).map((e) => e.outerHTML.slice(0, 200))")
        assert wide == [], (width, uid, wide)
        browser.value("document.querySelector('#report button').click()")
        browser.value("document.querySelector('#report-parts').replaceChildren()")
    assert browser.value("[document.scripts.length, document.querySelectorAll('img, svg, iframe, [onerror], [onload], [style*=url]').length]") == [2, 0]
    assert not re.search("[\x00-\x08\x0b-\x1f\x7f\u202e\u2028]", browser.value("document.documentElement.textContent"))

# The buttons: the next answer, and then as usual.
browser.value("(() => { const form = document.querySelector('#answers form'); form.elements.status.value = '503'; form.requestSubmit(); })()")
browser.wait("document.querySelector('#planned').textContent.includes(\"1 reports status='503'\")")
assert [post("reports", kept[0])[0] for _ in range(2)] == [503, 200]
browser.value("document.querySelector('[name=status]').value = \"<b>\"; document.querySelector('#answers form').requestSubmit()")
browser.wait("document.querySelector('#planned.fault')?.textContent == '\"<b>\" is no number'")
