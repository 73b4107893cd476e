// The page in a real browser, as a person would use it.
// usage: page_test.mjs WORK_FOLDER [FOLDER_FOR_SCREENSHOTS]
import assert from "node:assert/strict";
import { copyFileSync, mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { apart, assertLooksAt, axe, canvas, choose, finish, folder, frames, inFolder, jobReaches, jobSays, listed,
    makeShots, meanColour, middle, near, nq360, open, patience, pictures, press, says, serve, settled, step, textOf,
    type, until, valueOf, view, work } from "./browser.mjs";

makeShots();
const empty = join(work, "empty");
const many = join(work, "many");
mkdirSync(empty);
mkdirSync(many);
for (let shot = 0; shot < 500; ++shot) {
    for (const lens of [1, 2]) {
        copyFileSync(inFolder(`globe_${lens}.jpg`), join(many, `S${String(shot).padStart(4, "0")}_${lens}.jpg`));
    }
}

async function assertNoHindrance(page, what) {
    // Run by the debugger, which the page's policy does not bind.
    await page.evaluate(axe);
    const found = await page.evaluate(async () => (await axe.run()).violations
        .filter((one) => ["serious", "critical"].includes(one.impact))
        .map((one) => `${one.id}: ${one.nodes.map((node) => node.html).join(" ")}`));
    assert.deepEqual(found, [], what);
}

const kDegree = Math.PI / 180;
/** From one angle to another, the short way. */
const turned = (from, to) => Math.atan2(Math.sin(to - from), Math.cos(to - from));

/** The middle of the panorama on the screen, with room around it. */
async function middleOf(page) {
    const box = await canvas(page);
    return { ...box, x: box.x + box.width / 2, y: box.y + box.height / 2 };
}

async function drag(page, from, right, down, steps = 10) {
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    await page.mouse.move(from.x + right, from.y + down, { steps });
    await page.mouse.up();
    await frames(page);
}

// Pixels, or less, that the browser and the viewer take to tell a finger's drag from a tap.
const kSlop = 40;

/** One finger for each of these, from its place by so much. */
async function touch(page, fingers) {
    const touches = [];
    for (const { x, y } of fingers) {
        touches.push(await page.touchscreen.touchStart(x, y));
    }
    for (let i = 1; i <= 10; ++i) {
        for (const [at, { x, y, right = 0, down = 0 }] of fingers.entries()) {
            await touches[at].move(x + right * i / 10, y + down * i / 10);
        }
    }
    for (const one of touches) {
        await one.end();
    }
    await frames(page);
}

/** The next preview that is asked for with this in its query. */
const asks = (page, name, value) => page.waitForRequest((request) => {
    const { pathname, searchParams } = new URL(request.url());
    return pathname === "/api/preview" && searchParams.get(name) === value;
}, patience);

const asksMatch = (page) => page.waitForResponse((answer) => answer.url().endsWith("/api/match"), patience);

const kept = (name) => JSON.parse(readFileSync(inFolder(`.nq360/${name}.json`), "utf8"));

// ---- What a person does

const server = await serve(folder);
const page = await open(server.address);

await step("the folder is listed, with thumbnails and marks", async () => {
    await listed(page, "made.jpg");
    await page.waitForFunction(() => [...document.querySelectorAll(".shot img")].every((one) => one.complete),
        patience);
    await page.waitForFunction(() => document.querySelector("#list .tag ~ .bad"), patience);
    const texts = await page.$$eval(".shot", (all) => all.map((one) => one.innerText));
    assert.equal(texts.length, 5);
    assert.ok(texts.some((text) => text.includes("moon_1.jpg + moon_2.jpg") && text.includes("two lenses 360")));
    assert.ok(texts.some((text) => text.includes("lens1.mov + lens2.mov") && text.includes("0:02")));
    assert.ok(texts.some((text) => text.includes("torn.jpg") && text.includes("no second half")));
    const marked = await page.$$eval(".shot:has(.tag ~ .bad)", (all) => all.map((one) =>
        [one.querySelector("span").textContent, one.querySelector(".tag ~ .bad").textContent]));
    assert.deepEqual(marked, [["torn.jpg", " damaged"]]);
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

await step("a drag turns the look by its angle, and the picture with it", async () => {
    await page.evaluate(() => nq360.look({ yaw: 0.4, pitch: 0.1 }));
    await frames(page);
    const before = await view(page);
    const box = await middleOf(page);
    await drag(page, box, -200, 60, 20);
    const after = await view(page);
    const drags = 19 / 20; // by the first step the viewer tells a drag from a click
    near(turned(before.yaw, after.yaw), drags * 200 / box.width * before.hFov * kDegree, 0.01, "yaw");
    near(after.pitch - before.pitch, drags * 60 / box.height * before.vFov * kDegree, 0.01, "pitch");
    await assertLooksAt(page, "/files/made.jpg", "dragged");
});

/** Turns the wheel until the height of the view is as wanted. */
async function wheel(page, deltaY, isWanted) {
    while (!isWanted((await view(page)).vFov)) {
        await page.mouse.wheel({ deltaY });
        await frames(page);
    }
}

const reachesFov = (page, low, high) => page.waitForFunction((from, to) =>
    nq360.view().vFov > from && nq360.view().vFov < to, patience, low, high);

await step("wheel and keys go nearer and farther, fingers too; the corner has full screen", async () => {
    const { vFov } = await view(page);
    const box = await middleOf(page);
    await page.mouse.move(box.x, box.y);
    await wheel(page, -100, (now) => now < vFov - 5);
    await wheel(page, 100, (now) => now > vFov);

    await page.focus("#sphere");
    await page.keyboard.down("PageUp");
    await reachesFov(page, 0, vFov - 5);
    await page.keyboard.up("PageUp");
    await page.keyboard.down("PageDown");
    await reachesFov(page, vFov, 180);
    await page.keyboard.up("PageDown");

    await frames(page);
    const far = await view(page);
    await touch(page, [{ ...box, right: -150 }]);
    const perPixel = far.hFov / box.width * kDegree;
    const { yaw } = await view(page);
    near(turned(far.yaw, yaw), (150 - kSlop / 2) * perPixel, kSlop / 2 * perPixel + 0.01, "by a finger");
    await touch(page, [{ x: box.x - 60, y: box.y, right: -120 }, { x: box.x + 60, y: box.y, right: 120 }]);
    await reachesFov(page, 0, far.vFov - 5);

    await page.click(".psv-fullscreen-button");
    await page.waitForFunction(() => document.fullscreenElement?.contains(document.querySelector("#sphere canvas")) &&
        document.querySelector("#sphere canvas").clientHeight === innerHeight, patience);
    await page.click(".psv-fullscreen-button");
    await page.waitForFunction(() => !document.fullscreenElement, patience);
});

await step("a pair is looked at at once", async () => {
    await choose(page, "globe_1.jpg");
    await settled(page);
    await page.evaluate(() => nq360.look({ yaw: 0.8, pitch: 0.3 }));
    await assertLooksAt(page, "/api/preview?shot=globe_1.jpg&width=2880", "pair");
});

await step("an adjustment is seen, compared and taken back", async () => {
    const before = await middle(page);
    await type(page, "#adjust-yaw", "40");
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

/** Pixels of the screen as degrees of a dragged horizon. */
async function degreesPerPixel(page) {
    return (await view(page)).vFov / (await canvas(page)).height;
}

await step("the horizon is dragged by its angle, by mouse and finger, however slowly", async () => {
    const number = async (name) => Number(await valueOf(page, `#adjust-${name}`));
    const box = await middleOf(page);
    await press(page, "#drag");
    const look = await view(page);
    let degrees = await degreesPerPixel(page);
    await drag(page, box, -100, 0);
    near(await number("yaw"), 40 + 100 * degrees, 0.11, "yaw");
    assert.deepEqual(await view(page), look, "the look stays");
    await settled(page);
    const yaw = await valueOf(page, "#adjust-yaw");
    await assertLooksAt(page, `/api/preview?shot=globe_1.jpg&width=2880&yaw=${yaw}`, "dragged horizon");
    // What was straight ahead has gone to the left with the hand.
    const [ahead, left] = [{ yaw: 0, pitch: 0 }, { yaw: (40 - Number(yaw)) * kDegree, pitch: 0 }];
    const before = await page.evaluate(meanColour, "/api/preview?shot=globe_1.jpg&width=2880&yaw=40", ahead);
    const after = await page.evaluate(meanColour, `/api/preview?shot=globe_1.jpg&width=2880&yaw=${yaw}`, left);
    assert.ok(apart(before, after) < 14, `${before} has become ${after}`);

    await drag(page, box, 0, 50);
    near(await number("pitch"), 50 * degrees, 0.11, "pitch");
    await page.keyboard.down("Shift");
    await drag(page, box, 70, 0);
    await page.keyboard.up("Shift");
    near(await number("roll"), 70 * degrees, 0.11, "roll");
    near(await number("yaw"), Number(yaw), 0, "yaw, while it rolls");
    await touch(page, [{ ...box, right: 80 }]);
    near(await number("yaw"), Number(yaw) - (80 - kSlop / 2) * degrees, kSlop / 2 * degrees + 0.11, "by a finger");

    await page.mouse.move(box.x, box.y);
    await wheel(page, -100, (vFov) => vFov === 30); // as near as it goes
    degrees = await degreesPerPixel(page);
    const begun = await number("yaw");
    await drag(page, box, -61, 0, 61);
    near(await number("yaw"), begun + 61 * degrees, 0.11, "slowly");
    await press(page, "#drag");
    await press(page, "#reset");
    await settled(page);
});

await step("each field reaches the preview, and is kept", async () => {
    writeFileSync(inFolder("strip.png"), await page.screenshot({ clip: { x: 300, y: 300, width: 200, height: 20 } }));
    await page.waitForFunction(() => document.querySelector("#adjust-band option[value='strip.png']"), patience);
    const fields = { yaw: "11", pitch: "-6.5", roll: "3", tilt: "20", turn1: "0.4", turn2: "-0.3", feather: "3",
        gain1: "1.1,1,1", gain2: "0.9,1.01,1", correct1: "2,0,1", correct2: "-2,1,0" };
    for (const [name, value] of Object.entries(fields)) {
        const asked = asks(page, name, value);
        await type(page, `#adjust-${name}`, value);
        await asked;
    }
    const banded = asks(page, "band", "strip.png");
    await page.select("#adjust-band", "strip.png");
    await banded;
    const slid = asks(page, "roll", "3.5");
    await page.focus("#adjust input[aria-label='Roll, slider']");
    await page.keyboard.press("ArrowRight");
    await slid;
    await settled(page);
    assert.equal(await textOf(page, "#message"), "");
    const all = { ...fields, roll: "3.5", band: "strip.png" };
    await until(() => JSON.stringify(Object.entries(kept("globe_1.jpg")).sort()) ===
        JSON.stringify(Object.entries(all).sort()));
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
        kept("moon_1.jpg").gain2,
        inFolder("moon_1.jpg"), inFolder("moon_2.jpg"), made);
    assert.deepEqual(readFileSync(inFolder("moon_1-360.jpg")), readFileSync(made));
});

await step("of a pair of movies the frame at the time slider is shown", async () => {
    await choose(page, "lens1.mov");
    await settled(page);
    await page.evaluate(() => nq360.look({ yaw: 0.8, pitch: 0.3 }));
    await page.focus("#time");
    for (let i = 0; i < 10; ++i) {
        await page.keyboard.press("ArrowRight");
    }
    assert.equal(await valueOf(page, "#time"), "1");
    await settled(page);
    await assertLooksAt(page, "/api/preview?shot=lens1.mov&width=2880&start=1", "after a second");
    const bytes = (start) => page.evaluate(async (seconds) => {
        const answer = await fetch(`/api/preview?shot=lens1.mov&start=${seconds}`);
        return [...new Uint8Array(await answer.arrayBuffer())].join();
    }, start);
    assert.notEqual(await bytes(0), await bytes(1));
});

const running = ["waiting", "started", "progress"];

await step("a movie is exported with progress while another waits and is cancelled", async () => {
    await page.evaluate(() => {
        window.told = [];
        new MutationObserver(() => window.told.push(document.querySelector("#job-list").innerText))
            .observe(document.querySelector("#job-list"), { subtree: true, childList: true });
    });
    await page.select("#export-size", "1920x960");
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "lens1-360.mov", running);
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "lens1-360-2.mov", running);
    await press(page, '[aria-label="Cancel lens1-360-2.mov"]');
    await jobReaches(page, "lens1-360-2.mov", ["cancelled"]);
    await jobReaches(page, "lens1-360.mov", ["finished"]);
    const told = await page.evaluate(() => window.told);
    assert.ok(told.some((text) => /\d+ of 60 · [\d.]+ per second · 0:\d\d left/.test(text)), told.join("\n"));
    assert.ok(told.some((text) => /360-2\.mov\s+cancelled\s+lens1-360\.mov\s+(started|progress|\d+ of)/.test(text)),
        "the waiting one shows that it is cancelled while the other runs");
    assert.ok(!readdirSync(folder).some((name) => name.includes("360-2.mov") || name.startsWith(".nq360-")));
});

await step("the made movie plays, with sound, by keys too", async () => {
    await page.waitForFunction(() => document.querySelector("#title").textContent === "lens1-360.mov" &&
        document.querySelector("#sphere").dataset.shown === "movie", patience);
    await page.focus("#sphere");
    await page.keyboard.press("Space");
    await page.waitForFunction(() => nq360.video().currentTime > 0.5 &&
        nq360.video().webkitAudioDecodedByteCount > 0 && nq360.video().webkitVideoDecodedByteCount > 0, patience);
    await page.keyboard.press("Space");
    await page.waitForFunction(() => nq360.video().paused, patience);
    await page.focus("#time");
    await page.keyboard.press("Home");
    await page.waitForFunction(() => nq360.video().currentTime === 0, patience);
    for (let i = 0; i < 12; ++i) {
        await page.keyboard.press("ArrowRight");
    }
    await page.waitForFunction(() => Math.abs(nq360.video().currentTime - 1.2) < 0.01 && !nq360.video().seeking,
        patience);
    await says(page, "#time-text", "0:01");
    await page.evaluate(() => [...document.querySelectorAll(".shot")]
        .find((one) => one.textContent.includes("made.jpg")).focus());
    await page.keyboard.press("Space");
    await says(page, "#title", "made.jpg");
});

await step("one that runs is cancelled by the mouse, however its progress goes on", async () => {
    await choose(page, "lens1.mov");
    await settled(page);
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "lens1-360-2.mov", ["progress"]);
    const cancel = await (await page.$('[aria-label="Cancel lens1-360-2.mov"]')).boundingBox();
    const before = await jobSays(page, "lens1-360-2.mov");
    await page.mouse.move(cancel.x + cancel.width / 2, cancel.y + cancel.height / 2);
    await page.mouse.down();
    await page.waitForFunction((text) => !document.querySelector("#job-list li").textContent.includes(text), patience,
        before);
    await page.mouse.up();
    await jobReaches(page, "lens1-360-2.mov", ["cancelled"]);
    assert.equal(await page.evaluate(() => document.querySelector("#job-list li progress").checkVisibility()), false);
    assert.ok(!readdirSync(folder).some((name) => name.includes("360-2.mov") || name.startsWith(".nq360-")));
});

await step("exports outlive a reload, and what they made is opened", async () => {
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "lens1-360-2.mov", ["progress"]);
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "lens1-360-3.mov", running);
    await page.reload();
    await jobReaches(page, "lens1-360-3.mov", running);
    await jobReaches(page, "lens1-360-3.mov", ["finished"]);
    await page.waitForFunction(() => document.querySelector("#title").textContent === "lens1-360-3.mov" &&
        document.querySelector("#sphere").dataset.shown === "movie", patience);
});

await step("sound to a file; a failure is told in words", async () => {
    await choose(page, "lens1.mov");
    await settled(page);
    await page.evaluate(() => [...document.querySelectorAll("#export button")]
        .find((one) => one.textContent === "Sound to a file").click());
    await jobReaches(page, "lens1.wav", ["finished"]);
    await type(page, "#export-start", "0:59");
    await press(page, "#export button[type=submit]");
    await jobReaches(page, "lens1-360-4.mov", ["failed"]);
    assert.equal(await jobSays(page, "lens1-360-4.mov"),
        "failed lens1-360-4.mov: no pair of pictures lies in the range");
});

await step("a damaged file is shown for what it is", async () => {
    await choose(page, "torn.jpg");
    await page.waitForFunction(() => !document.querySelector("#flat").hidden, patience);
    assert.match(await textOf(page, "#message"), /no second half/);
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
        reached.add(await page.evaluate(() => document.activeElement.id || document.activeElement.ariaLabel ||
            document.activeElement.title || document.activeElement.name || document.activeElement.textContent));
    }
    for (const wanted of ["sphere", "Full screen", "match", "before", "reset", "drag", "adjust-yaw", "adjust-gain1",
        "adjust-band", "export-size", "export-quality", "partial", "Export", "Open lens1-360-2.mov"]) {
        assert.ok(reached.has(wanted), `Tab does not reach ${wanted}: ${[...reached]}`);
    }
    await type(page, "#adjust-pitch", "5");
    await settled(page);
    await page.focus("#before");
    await page.keyboard.press("b");
    assert.equal(await page.$eval("#before", (one) => one.ariaPressed), "true");
    await page.keyboard.press("b");
    await settled(page);
    await page.focus("#sphere");
    await page.keyboard.press("h");
    await page.waitForFunction(() => nq360.view().yaw === 0 && nq360.view().pitch === 0, patience);
    await page.keyboard.down("ArrowRight");
    await page.waitForFunction(() => nq360.view().yaw > 0.1 && nq360.view().yaw < Math.PI, patience);
    await page.keyboard.up("ArrowRight");
    const matches = asksMatch(page);
    await page.keyboard.press("m");
    await matches;
    await says(page, "#message", "seam");
    await press(page, "#reset");
    await settled(page);
});

await step("export, cancel and open by keyboard", async () => {
    await page.focus("#export button[type=submit]");
    await page.keyboard.press("Enter");
    await jobReaches(page, "globe_1-360.jpg", ["finished"]);
    await says(page, "#title", "globe_1-360.jpg");
    await page.focus('[aria-label="Open lens1-360.mov"]');
    await page.keyboard.press("Enter");
    await says(page, "#title", "lens1-360.mov");
    await choose(page, "lens1.mov");
    await settled(page);
    await page.focus("#export button[type=submit]");
    await page.keyboard.press("Enter");
    await jobReaches(page, "lens1-360-4.mov", running);
    await page.focus('[aria-label="Cancel lens1-360-4.mov"]');
    await page.keyboard.press("Space");
    await jobReaches(page, "lens1-360-4.mov", ["cancelled"]);
    assert.ok(await page.evaluate(() => document.activeElement.textContent.includes("lens1-360-4.mov")),
        "the focus stays with the export");
});

await step("nothing serious for axe-core, wide and narrow", async () => {
    await choose(page, "moon_1.jpg");
    await settled(page);
    await page.evaluate(() => nq360.look({ yaw: 3, pitch: 0.05 }));
    await frames(page);
    await assertNoHindrance(page, "1280");
    if (pictures) {
        await page.evaluate(() => ["#tools", "#shots"].forEach((one) => document.querySelector(one).scrollTo(0, 0)));
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
    await view.waitForFunction(() => [...document.querySelectorAll(".shot img")].some((one) => one.naturalWidth > 0),
        patience);
    console.log(`  first thumbnails after ${Date.now() - begun} ms`);
    await view.waitForFunction(() => document.querySelectorAll(".shot").length === 500, patience);
    console.log(`  all 500 after ${Date.now() - begun} ms`);
    await view.evaluate(() => document.querySelector("#list").lastElementChild.scrollIntoView());
    await view.waitForFunction(() => document.querySelector("#list > :last-child img").naturalWidth > 0, patience);
    await view.close();
    await other.end();
});

await finish();
