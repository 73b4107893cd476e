// The page in a real browser, as a person would use it.
// usage: page_test.mjs WORK_FOLDER [FOLDER_FOR_SCREENSHOTS]
import assert from "node:assert/strict";
import { spawn, execFileSync } from "node:child_process";
import { copyFileSync, existsSync, mkdirSync, readFileSync, readdirSync, truncateSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";

const require = createRequire(process.env.NQ360_MODULES);
const puppeteer = require("puppeteer-core");
const axe = readFileSync(require.resolve("axe-core/axe.min.js"), "utf8");
const [work, pictures] = process.argv.slice(2);
const command = process.env.NQ360;
const patience = { timeout: 120000 };

// ---- Shots

const folder = join(work, "shots");
const empty = join(work, "empty");
const many = join(work, "many");
for (const one of [folder, empty, many]) {
    mkdirSync(one);
}
const inFolder = (name) => join(folder, name);
const sample = (...words) => execFileSync(process.env.NQ360_SAMPLE, words);
const nq360 = (...words) => execFileSync(command, words);

sample("still", inFolder("moon_1.jpg"), inFolder("moon_2.jpg"), "--size", "1440", "--scene", "tests/data/apollo17.png",
    "--factor", "1.35", "--turn2", "2");
sample("still", inFolder("globe_1.jpg"), inFolder("globe_2.jpg"), "--size", "1440");
sample("movie", inFolder("lens1.mov"), inFolder("lens2.mov"), "--size", "1440", "--frames", "60");
nq360("export", "-q", inFolder("globe_1.jpg"), inFolder("globe_2.jpg"), inFolder("made.jpg"));
copyFileSync(inFolder("globe_1.jpg"), inFolder("damaged.jpg"));
truncateSync(inFolder("damaged.jpg"), 30000);
for (let shot = 0; shot < 500; ++shot) {
    for (const lens of [1, 2]) {
        copyFileSync(inFolder(`globe_${lens}.jpg`), join(many, `S${String(shot).padStart(4, "0")}_${lens}.jpg`));
    }
}

// ---- Server and browser

async function serve(shots) {
    const server = spawn(command, ["view", shots, "--json", "--no-browser"], { stdio: ["ignore", "pipe", "inherit"] });
    process.once("exit", () => server.kill("SIGKILL"));
    const line = await new Promise((resolve) => server.stdout.once("data", resolve));
    const end = () => new Promise((resolve) => server.once("exit", resolve).kill("SIGINT"));
    return { address: JSON.parse(line).address, end };
}

const browser = await puppeteer.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: ["--no-sandbox", "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--mute-audio",
        "--disable-background-networking", "--disable-component-update", "--disable-sync"],
    protocolTimeout: patience.timeout,
});

/** Everything that the console calls an error, and every address that is not the server's. */
const complaints = [];

async function open(address, width = 1280, height = 800) {
    const page = await browser.newPage();
    page.setDefaultTimeout(patience.timeout);
    await page.setViewport({ width, height });
    page.on("console", (message) => ["error", "warn"].includes(message.type()) &&
        !/GPU stall|swiftshader|WebGL-0x/i.test(message.text()) && complaints.push(message.text()));
    page.on("pageerror", (error) => complaints.push(error.stack));
    const host = new URL(address).host;
    page.on("request", (request) => {
        const asked = new URL(request.url());
        if (!["blob:", "data:"].includes(asked.protocol) && asked.host !== host) {
            complaints.push(`asks ${request.url()}`);
        }
    });
    await page.goto(address);
    return page;
}

let taken = 0;
async function step(name, act) {
    const begun = Date.now();
    await act();
    taken += 1;
    console.log(`${name}: ${((Date.now() - begun) / 1000).toFixed(1)} s`);
}

const choose = (page, name) => page.evaluate((text) => {
    [...document.querySelectorAll(".shot")].find((one) => one.textContent.includes(text)).click();
}, name);
const listed = (page, name) => page.waitForFunction((text) =>
    [...document.querySelectorAll(".shot")].some((one) => one.textContent.includes(text)), patience, name);

/** The shot is on the sphere, in the quality of a hand at rest. */
async function settled(page) {
    await page.waitForFunction(() => {
        const box = document.querySelector("#sphere");
        return box.dataset.width === "2880" && box.ariaBusy === "false";
    }, patience);
    await frames(page);
}

/** What was changed has been drawn. */
const frames = (page) => page.evaluate(() => new Promise((resolve) => {
    let left = 4;
    const next = () => (--left > 0 ? requestAnimationFrame(next) : resolve());
    requestAnimationFrame(next);
}));

/** The mean colour of a few pixels in the middle of the sphere, as it is on the screen. */
async function middle(page) {
    await frames(page);
    const box = await (await page.$("#sphere canvas")).boundingBox();
    const side = 6;
    const clip = { x: box.x + box.width / 2 - side / 2, y: box.y + box.height / 2 - side / 2, width: side, height: side };
    const picture = await page.screenshot({ clip, encoding: "base64" });
    return page.evaluate(meanColour, `data:image/png;base64,${picture}`, null);
}

/** In the page: the mean colour of a picture, or of the place in it that a direction (radians) shows. */
async function meanColour(address, at) {
    // The page's policy lets no script fetch data: addresses; a picture may show them.
    const picture = new Image();
    picture.src = address;
    await picture.decode();
    const { width, height } = picture;
    const side = at ? 5 : width;
    const wrapped = at && ((at.yaw / (2 * Math.PI) + 0.5) % 1 + 1) % 1;
    const x = at ? Math.round(wrapped * width) - 2 : 0;
    const y = at ? Math.round((0.5 - at.pitch / Math.PI) * height) - 2 : 0;
    const canvas = new OffscreenCanvas(side, at ? side : height);
    const context = canvas.getContext("2d");
    context.drawImage(picture, -x, -y);
    const { data } = context.getImageData(0, 0, canvas.width, canvas.height);
    const sum = [0, 0, 0];
    for (let i = 0; i < data.length; i += 4) {
        sum.forEach((_, plane) => (sum[plane] += data[i + plane]));
    }
    return sum.map((one) => one / (data.length / 4));
}

// Radians; half a line of the drawn scene, which smooths differently on the sphere.
const kLineWidth = 0.006;

const apart = (one, other) => Math.max(...one.map((value, plane) => Math.abs(value - other[plane])));

/** The middle of the sphere shows what the panorama at that address has in the direction of the look. */
async function assertLooksAt(page, address, what) {
    const at = await page.evaluate(() => ({ ...nq360.view() }));
    const seen = await middle(page);
    const expected = [];
    for (const [right, up] of [[0, 0], [1, 0], [-1, 0], [0, 1], [0, -1]]) {
        const near = { yaw: at.yaw + right * kLineWidth, pitch: at.pitch + up * kLineWidth };
        expected.push(await page.evaluate(meanColour, address, near));
    }
    const differences = expected.map((one) => apart(seen, one));
    assert.ok(Math.min(...differences) < 14, `${what}: ${seen} is seen, not ${expected[0]}, at ${JSON.stringify(at)}`);
    return seen;
}

async function assertNoHindrance(page, what) {
    // Run by the debugger, which the page's policy does not bind.
    await page.evaluate(axe);
    const found = await page.evaluate(async () => (await axe.run()).violations
        .filter((one) => ["serious", "critical"].includes(one.impact))
        .map((one) => `${one.id}: ${one.nodes.map((node) => node.html).join(" ")}`));
    assert.deepEqual(found, [], what);
}

const jobState = (page, name) => page.evaluate((text) =>
    [...document.querySelectorAll("#job-list li")].find((one) => one.textContent.includes(text))?.dataset.state, name);
const jobReaches = (page, name, states) => page.waitForFunction((text, wanted) => {
    const job = [...document.querySelectorAll("#job-list li")].find((one) => one.textContent.includes(text));
    return job && wanted.includes(job.dataset.state);
}, patience, name, states);
const press = (page, selector) => page.evaluate((place) => document.querySelector(place).click(), selector);
const setNumber = (page, selector, value) => page.evaluate((place, number) => {
    const field = document.querySelector(place);
    field.value = number;
    field.dispatchEvent(new Event("change", { bubbles: true }));
}, selector, value);

// ---- What a person does

const server = await serve(folder);
const page = await open(server.address);

await step("the folder is listed, with thumbnails and marks", async () => {
    await listed(page, "made.jpg");
    await page.waitForFunction(() => [...document.querySelectorAll(".shot img")].every((one) => one.complete), patience);
    await page.waitForFunction(() => document.querySelector("#list").textContent.includes("damaged"), patience);
    const texts = await page.$$eval(".shot", (all) => all.map((one) => one.innerText));
    assert.equal(texts.length, 5);
    assert.ok(texts.some((text) => text.includes("moon_1.jpg + moon_2.jpg") && text.includes("two lenses 360")));
    assert.ok(texts.some((text) => text.includes("lens1.mov + lens2.mov") && text.includes("0:02")));
    assert.ok(texts.some((text) => text.includes("damaged.jpg") && text.includes("no second half")));
    assert.equal(new URL(page.url()).search, "", "the key stays in no address");
});

await step("a panorama is looked at where the look points", async () => {
    await choose(page, "made.jpg");
    await page.waitForFunction(() => document.querySelector("#sphere").dataset.shown === "picture", patience);
    for (const look of [{ yaw: 0.39, pitch: 0.13 }, { yaw: 1, pitch: 0.4 }, { yaw: 4, pitch: -0.6 }]) {
        await page.evaluate((to) => nq360.look(to), look);
        await assertLooksAt(page, "/files/made.jpg", JSON.stringify(look));
    }
});

await step("a drag turns the look, and the picture with it", async () => {
    const before = await page.evaluate(() => nq360.view());
    const box = await (await page.$("#sphere canvas")).boundingBox();
    const at = [box.x + box.width / 2, box.y + box.height / 2];
    await page.mouse.move(...at);
    await page.mouse.down();
    await page.mouse.move(at[0] - 200, at[1] + 60, { steps: 10 });
    await page.mouse.up();
    await page.waitForFunction((yaw) => Math.abs(nq360.view().yaw - yaw) > 0.1, patience, before.yaw);
    await assertLooksAt(page, "/files/made.jpg", "dragged");
});

await step("a pair is looked at at once", async () => {
    await choose(page, "globe_1.jpg");
    await settled(page);
    await page.evaluate(() => nq360.look({ yaw: 0.8, pitch: 0.3 }));
    await assertLooksAt(page, "/api/preview?shot=globe_1.jpg&width=2880", "pair");
});

await step("an adjustment is seen, compared and taken back", async () => {
    const before = await middle(page);
    await setNumber(page, "#adjust-yaw", "40");
    await settled(page);
    const after = await assertLooksAt(page, "/api/preview?shot=globe_1.jpg&width=2880&yaw=40", "yaw 40");
    assert.ok(apart(before, after) > 5, `${before} and ${after}`);
    await press(page, "#before");
    await settled(page);
    assert.ok(apart(await middle(page), before) < 3);
    await press(page, "#before");
    await settled(page);
    assert.ok(apart(await middle(page), after) < 3);
});

await step("the horizon is dragged", async () => {
    await press(page, "#drag");
    const box = await (await page.$("#sphere canvas")).boundingBox();
    await page.mouse.move(box.x + 300, box.y + 300);
    await page.mouse.down();
    await page.mouse.move(box.x + 200, box.y + 300, { steps: 8 });
    await page.mouse.up();
    await settled(page);
    const yaw = Number(await page.$eval("#adjust-yaw", (field) => field.value));
    assert.ok(yaw > 42, `yaw ${yaw}`);
    await assertLooksAt(page, `/api/preview?shot=globe_1.jpg&width=2880&yaw=${yaw}`, "dragged horizon");
    await press(page, "#drag");
    await press(page, "#reset");
    await settled(page);
});

await step("a match finds turn and gain, and outlives a reload", async () => {
    await choose(page, "moon_1.jpg");
    await settled(page);
    await press(page, "#match");
    await page.waitForFunction(() => document.querySelector("#adjust-turn2").value === "2", patience);
    assert.match(await page.$eval("#adjust-gain2", (field) => field.value), /^0\.7[34]/);
    await settled(page);
    assert.match(await page.$eval("#message", (one) => one.textContent), /The step at the seam falls by/);
    const kept = () => existsSync(inFolder(".nq360/moon_1.jpg.json"));
    while (!kept()) {
        await new Promise((resolve) => setTimeout(resolve, 50));
    }
    await page.reload();
    await listed(page, "moon_1.jpg");
    await page.waitForFunction(() => document.querySelector("#adjust-turn2")?.value === "2", patience);
    await settled(page);
});

await step("a still is exported and opened", async () => {
    await page.select("#export-size", "1920x960");
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "moon_1-360.jpg", ["finished"]);
    await page.waitForFunction(() => document.querySelector("#title").textContent === "moon_1-360.jpg", patience);
    const made = inFolder("again.jpg");
    nq360("export", "-q", "--size", "1920x960", "--turn2", "2", "--gain2",
        JSON.parse(readFileSync(inFolder(".nq360/moon_1.jpg.json"), "utf8")).gain2,
        inFolder("moon_1.jpg"), inFolder("moon_2.jpg"), made);
    assert.deepEqual(readFileSync(inFolder("moon_1-360.jpg")), readFileSync(made));
});

await step("a movie is exported with progress while another waits and is cancelled", async () => {
    await choose(page, "lens1.mov");
    await settled(page);
    await page.evaluate(() => {
        window.told = [];
        new MutationObserver(() => window.told.push(document.querySelector("#job-list").innerText))
            .observe(document.querySelector("#job-list"), { subtree: true, childList: true });
    });
    await page.select("#export-size", "1920x960");
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "lens1-360.mov", ["waiting", "started", "progress"]);
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "lens1-360-2.mov", ["waiting", "started", "progress"]);
    await page.evaluate(() => document.querySelector('[aria-label="Cancel lens1-360-2.mov"]').click());
    await jobReaches(page, "lens1-360.mov", ["finished"]);
    await jobReaches(page, "lens1-360-2.mov", ["cancelled"]);
    const told = await page.evaluate(() => window.told.join("\n"));
    assert.match(told, /\d+ of \d+ · [\d.]+ per second · 0:\d\d left/);
    assert.ok(!readdirSync(folder).some((name) => name.includes("360-2.mov") || name.startsWith(".nq360-")));
});

await step("the made movie plays, with sound", async () => {
    await page.waitForFunction(() => document.querySelector("#title").textContent === "lens1-360.mov" &&
        document.querySelector("#sphere").dataset.shown === "movie", patience);
    await page.evaluate(() => nq360.video().play());
    await page.waitForFunction(() => nq360.video().currentTime > 0.5 &&
        nq360.video().webkitAudioDecodedByteCount > 0 && nq360.video().webkitVideoDecodedByteCount > 0, patience);
    await page.evaluate(() => nq360.video().pause());
});

await step("sound to a file; a failure is told in words", async () => {
    await choose(page, "lens1.mov");
    await settled(page);
    await page.evaluate(() => [...document.querySelectorAll("#export button")]
        .find((one) => one.textContent === "Sound to a file").click());
    await jobReaches(page, "lens1.wav", ["finished"]);
    await page.evaluate(() => (document.querySelector("#export-start").value = "0:59"));
    await press(page, "#export button[type=submit]");
    await page.waitForFunction(() => document.querySelector("#jobs .failed, #export .failed"), patience);
    assert.ok((await page.$eval("#jobs .failed ~ .failed, #export p.failed", (one) => one.textContent)).length > 10);
});

await step("a damaged file is shown for what it is", async () => {
    await choose(page, "damaged.jpg");
    await page.waitForFunction(() => !document.querySelector("#flat").hidden, patience);
    assert.match(await page.$eval("#message", (one) => one.textContent), /no second half/);
});

await step("everything by keyboard", async () => {
    await page.evaluate(() => document.querySelector(".shot").focus());
    for (let i = 0; i < 20; ++i) {
        const text = await page.evaluate(() => document.activeElement.textContent);
        if (text.includes("globe_1.jpg +")) {
            break;
        }
        await page.keyboard.press("ArrowDown");
    }
    await page.keyboard.press("Enter");
    await settled(page);
    const reached = new Set();
    for (let i = 0; i < 80; ++i) {
        await page.keyboard.press("Tab");
        reached.add(await page.evaluate(() => document.activeElement.id || document.activeElement.title ||
            document.activeElement.name || document.activeElement.textContent));
    }
    for (const wanted of ["match", "before", "reset", "drag", "adjust-yaw", "adjust-gain1", "export-size",
        "export-quality", "partial", "Export"]) {
        assert.ok(reached.has(wanted), `Tab does not reach ${wanted}: ${[...reached]}`);
    }
    await page.focus("#adjust-pitch");
    await page.keyboard.type("5");
    await page.keyboard.press("Tab");
    await settled(page);
    await page.focus("#before");
    await page.keyboard.press("b");
    assert.equal(await page.$eval("#before", (one) => one.ariaPressed), "true");
    await page.keyboard.press("b");
    await settled(page);
    const before = await page.evaluate(() => nq360.view().yaw);
    await page.focus("#sphere");
    await page.keyboard.down("ArrowRight");
    await page.waitForFunction((yaw) => nq360.view().yaw !== yaw, patience, before);
    await page.keyboard.up("ArrowRight");
    await press(page, "#reset");
    await settled(page);
});

await step("nothing serious for axe-core, wide and narrow", async () => {
    await choose(page, "moon_1.jpg");
    await settled(page);
    await page.evaluate(() => nq360.look({ yaw: 3, pitch: 0.05 }));
    await frames(page);
    await assertNoHindrance(page, "1280");
    if (pictures) {
        await page.screenshot({ path: join(pictures, "view.png") });
    }
    await page.setViewport({ width: 390, height: 844 });
    await frames(page);
    assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), "it scrolls sideways");
    await assertNoHindrance(page, "390");
    if (pictures) {
        await page.screenshot({ path: join(pictures, "view-narrow.png"), fullPage: true });
    }
});

await page.close();
await server.end();

await step("an empty folder says so, and new files appear", async () => {
    const other = await serve(empty);
    const view = await open(other.address);
    await view.waitForFunction(() => document.querySelector("#hint").textContent.includes("No pictures"), patience);
    for (const lens of [1, 2]) {
        copyFileSync(inFolder(`globe_${lens}.jpg`), join(empty, `globe_${lens}.jpg`));
    }
    await listed(view, "globe_1.jpg + globe_2.jpg");
    await view.close();
    await other.end();
});

await step("500 shots: listed, and thumbnails where one scrolls to", async () => {
    const other = await serve(many);
    const begun = Date.now();
    const view = await open(other.address);
    await view.waitForFunction(() => document.querySelectorAll(".shot").length > 0, patience);
    console.log(`  first shots after ${Date.now() - begun} ms`);
    await view.waitForFunction(() => [...document.querySelectorAll(".shot img")].some((one) => one.naturalWidth > 0), patience);
    console.log(`  first thumbnails after ${Date.now() - begun} ms`);
    await view.waitForFunction(() => document.querySelectorAll(".shot").length === 500, patience);
    console.log(`  all 500 after ${Date.now() - begun} ms`);
    await view.evaluate(() => document.querySelector("#list").lastElementChild.scrollIntoView());
    await view.waitForFunction(() => document.querySelector("#list").lastElementChild.querySelector("img").naturalWidth > 0,
        patience);
    await view.close();
    await other.end();
});

await browser.close();
assert.deepEqual(complaints, []);
console.log(`${taken} steps, no error in the console, nothing asked of any other place`);
