// The page when something comes in between: another shot, another window, a slow or ended server, a reload.
// usage: page_troubles_test.mjs WORK_FOLDER
import assert from "node:assert/strict";
import { copyFileSync, existsSync, readFileSync, unlinkSync } from "node:fs";
import { assertLooksAt, choose, finish, folder, inFolder, jobReaches, listed, makeShots, nq360, open, patience, press,
    says, serve, settled, step, textOf, type, until, valueOf, work } from "./browser.mjs";

makeShots();
const keptYaw = (name) => {
    const file = inFolder(`.nq360/${name}.json`);
    return existsSync(file) ? JSON.parse(readFileSync(file, "utf8")).yaw : undefined;
};
const hold = (page, start) => page.evaluate((text) => gate.hold(text), start);
const letGo = (page, start) => page.evaluate((text) => gate.letGo(text), start);
const asked = (page, start) =>
    page.evaluate((text) => gate.asked.filter((one) => one.startsWith(text)).length, start);
const isAsked = (page, start, times) => page.waitForFunction((text, count) =>
    gate.asked.filter((one) => one.startsWith(text)).length >= count, patience, start, times);
const isHeld = (page, start) => isAsked(page, start, 1);
/** The folder has been listed anew so many times. */
const relists = async (page, times) => isAsked(page, "GET /api/shots", await asked(page, "GET /api/shots") + times);

/** What the shot that has the focus says. */
const focusedShot = () => page.evaluate(() => document.activeElement.closest(".shot")?.textContent ?? "none");

const server = await serve(folder);
const page = await open(server.address);
await listed(page, "made.jpg");

await step("an address that was cut off opens the page", async () => {
    await page.goto(`${new URL(server.address).origin}/#%`);
    await page.reload();
    await listed(page, "made.jpg");
    assert.equal(await textOf(page, "#title"), "Choose a shot");
    assert.ok(await page.$eval("#tools", (one) => one.hidden));
});

await step("a shot that is left while its picture loads keeps nobody waiting", async () => {
    await hold(page, "GET blob:");
    await choose(page, "globe_1.jpg +");
    await isHeld(page, "GET blob:");
    await choose(page, "torn.jpg");
    await choose(page, "moon_1.jpg");
    await page.waitForFunction(() => gate.asked.filter((one) => one.startsWith("GET blob:")).length > 1, patience);
    await letGo(page, "GET blob:");
    await settled(page);
    assert.equal(await page.$$eval("#sphere canvas", (all) => all.length), 1);
});

await step("what is adjusted within a rest of another shot, or of a reload, is kept", async () => {
    await choose(page, "globe_1.jpg +");
    await type(page, "#adjust-yaw", "12");
    await choose(page, "moon_1.jpg");
    await type(page, "#adjust-yaw", "13");
    await choose(page, "globe_1.jpg +");
    assert.equal(await valueOf(page, "#adjust-yaw"), "12");
    await until(() => keptYaw("globe_1.jpg") === "12" && keptYaw("moon_1.jpg") === "13");
    await relists(page, 2);
    await choose(page, "moon_1.jpg");
    assert.equal(await valueOf(page, "#adjust-yaw"), "13");
    await type(page, "#adjust-yaw", "14");
    await page.reload();
    await settled(page);
    assert.equal(await valueOf(page, "#adjust-yaw"), "14");
    assert.equal(keptYaw("moon_1.jpg"), "14");
});

await step("adjustments are kept one after the other, the last one last", async () => {
    await hold(page, "PUT /api/adjustments");
    await type(page, "#adjust-yaw", "20");
    await isHeld(page, "PUT /api/adjustments");
    await type(page, "#adjust-yaw", "21");
    await settled(page); // longer than the rest
    assert.equal(await asked(page, "PUT /api/adjustments"), 1);
    await letGo(page, "PUT /api/adjustments");
    await until(() => keptYaw("moon_1.jpg") === "21");
    assert.equal(await asked(page, "PUT /api/adjustments"), 2);
});

await step("a list that was asked for before does not take an adjustment back", async () => {
    await hold(page, "GET /api/shots");
    const before = await asked(page, "GET /api/shots");
    await isAsked(page, "GET /api/shots", before + 1);
    await type(page, "#adjust-yaw", "22");
    await until(() => keptYaw("moon_1.jpg") === "22");
    await page.evaluate(() => gate.changed.set("GET /api/shots", (listing) => {
        gate.changed.clear();
        listing.shots.find((one) => one.id === "moon_1.jpg").adjustments = { yaw: "21" };
        return listing;
    }));
    await letGo(page, "GET /api/shots");
    await relists(page, 1);
    assert.equal(await valueOf(page, "#adjust-yaw"), "22");
});

await step("another window's adjustments are shown, not overwritten", async () => {
    const other = await open(`${new URL(server.address).origin}/#moon_1.jpg`);
    await settled(other);
    await type(other, "#adjust-yaw", "30");
    await page.bringToFront();
    await page.waitForFunction(() => document.querySelector("#adjust-yaw").value === "30", patience);
    await type(page, "#adjust-pitch", "2");
    await until(() => readFileSync(inFolder(".nq360/moon_1.jpg.json"), "utf8").includes("pitch"));
    assert.equal(keptYaw("moon_1.jpg"), "30");
    await other.close();
});

await step("a match takes what it finds and leaves what was changed meanwhile, one at a time", async () => {
    await press(page, "#reset");
    await settled(page);
    await hold(page, "POST /api/match");
    await page.focus("#before");
    await page.keyboard.down("m");
    await page.keyboard.down("m");
    await page.keyboard.up("m");
    await page.keyboard.press("m");
    await isHeld(page, "POST /api/match");
    assert.equal(await asked(page, "POST /api/match"), 1);
    await type(page, "#adjust-yaw", "15");
    await press(page, "#before");
    await letGo(page, "POST /api/match");
    await says(page, "#message", "The step at the seam falls by");
    assert.equal(await valueOf(page, "#adjust-yaw"), "15");
    assert.equal(await valueOf(page, "#adjust-turn2"), "2");
    assert.equal(await page.$eval("#before", (one) => one.ariaPressed), "false");
    await until(() => keptYaw("moon_1.jpg") === "15");
});

await step("a match is its own shot's, whatever is looked at when it ends", async () => {
    const file = inFolder(".nq360/moon_1.jpg.json");
    await press(page, "#reset");
    await until(() => !existsSync(file));
    await hold(page, "POST /api/match");
    await press(page, "#match");
    await choose(page, "globe_1.jpg +");
    await letGo(page, "POST /api/match");
    await until(() => existsSync(file) && JSON.parse(readFileSync(file, "utf8")).turn2 === "2");
    assert.equal(await textOf(page, "#message"), "");
    assert.equal(await valueOf(page, "#adjust-turn2"), "0");
    await choose(page, "moon_1.jpg");
    assert.equal(await valueOf(page, "#adjust-turn2"), "2");
});

await step("keys and previews ask for nothing that a panorama has not", async () => {
    await choose(page, "made.jpg");
    await page.waitForFunction(() => document.querySelector("#sphere").dataset.shown === "picture" &&
        document.querySelector("#sphere").ariaBusy === "false", patience);
    const before = await page.evaluate(() => gate.asked.filter((one) => !one.includes("/api/shots")).length);
    await page.keyboard.press("m");
    await page.keyboard.press("b");
    await relists(page, 1);
    assert.equal(await page.evaluate(() => gate.asked.filter((one) => !one.includes("/api/shots")).length), before);
    assert.equal(await textOf(page, "#message"), "");
});

await step("a mark that comes later appears on the chosen shot; its place keeps the focus", async () => {
    await page.evaluate(() => {
        document.querySelector(".shot[aria-current=true]").focus();
        gate.changed.set("GET /api/shots", (listing) => {
            listing.shots.find((one) => one.id === "made.jpg").damaged = true;
            return listing;
        });
    });
    await says(page, ".shot[aria-current=true] .bad", " damaged");
    assert.match(await focusedShot(), /made\.jpg/);
    await page.evaluate(() => gate.changed.clear());
});

await step("the list's words are not said again", async () => {
    await page.evaluate(() => {
        window.said = [];
        new MutationObserver((changes) => window.said.push(...changes.map((one) => one.target.textContent)))
            .observe(document.querySelector("header"), { subtree: true, childList: true, characterData: true });
    });
    await relists(page, 2);
    assert.deepEqual(await page.evaluate(() => window.said), []);
});

await step("a panorama that was replaced is seen as it is now", async () => {
    const picture = () => page.evaluate(() => [...document.querySelectorAll(".shot")]
        .find((one) => one.textContent.includes("made.jpg")).querySelector("img").src);
    const before = await picture();
    await choose(page, "torn.jpg");
    nq360("export", "-q", "--size", "1920x960", inFolder("moon_1.jpg"), inFolder("moon_2.jpg"), `${work}/moon.jpg`);
    copyFileSync(`${work}/moon.jpg`, inFolder("made.jpg"));
    await page.waitForFunction((src) => [...document.querySelectorAll(".shot")].some((one) =>
        /made\.jpg.*panorama/.test(one.textContent) && one.querySelector("img").src !== src), patience, before);
    await choose(page, "made.jpg");
    await page.waitForFunction(() => document.querySelector("#sphere").dataset.shown === "picture", patience);
    await page.evaluate(() => nq360.look({ yaw: 3, pitch: 0.05 }));
    await assertLooksAt(page, "/files/made.jpg", "replaced");
});

await step("a shot that goes takes no other's focus", async () => {
    copyFileSync(inFolder("torn.jpg"), inFolder("again.jpg"));
    await page.waitForFunction(() => [...document.querySelectorAll(".shot")]
        .find((one) => one.textContent.includes("again.jpg"))?.querySelector("img").complete, patience);
    await page.evaluate(() => document.querySelector(".shot[aria-current=true]").focus());
    unlinkSync(inFolder("again.jpg"));
    await page.waitForFunction(() => !document.querySelector("#list").textContent.includes("again.jpg"), patience);
    assert.match(await focusedShot(), /made\.jpg/);
});

await step("too little room is told before, and how much there is after an export", async () => {
    await page.evaluate(() => gate.changed.set("GET /api/space", () => ({ folder: "", free: 1024, needed: 2 ** 30 })));
    await choose(page, "moon_1.jpg");
    await says(page, "#room", "Not enough room: 1.0 GiB are needed, 1.0 KiB are free.");
    assert.equal(await page.$eval("#room", (one) => one.className), "failed");
    await page.evaluate(() => gate.changed.clear());
    await page.select("#export-size", "1920x960");
    await press(page, "#export button[type=submit]");
    await page.waitForFunction(() => /^[\d.]+ [KMGT]iB free$/.test(document.querySelector("#room").textContent),
        patience);
    await jobReaches(page, "moon_1-360.jpg", ["finished"]);
});

await step("exports show after a reload, whatever is looked at", async () => {
    await listed(page, "moon_1-360.jpg");
    await choose(page, "torn.jpg");
    await page.reload();
    await jobReaches(page, "moon_1-360.jpg", ["finished"]);
    await says(page, "#title", "torn.jpg");
    assert.ok(await page.evaluate(() => document.querySelector("#job-list li").checkVisibility()));
    assert.ok(!await page.evaluate(() => document.querySelector("#adjust").checkVisibility()));
    await page.goto(new URL(server.address).origin);
    await jobReaches(page, "moon_1-360.jpg", ["finished"]);
    assert.ok(await page.evaluate(() => document.querySelector("#job-list li").checkVisibility()));
});
await page.close();

await step("progress comes back after an error", async () => {
    const other = await open(`${new URL(server.address).origin}/#lens1.mov`, { before: () => {
        const Real = window.EventSource;
        window.broken = 0;
        window.EventSource = class extends Real {
            constructor(address) {
                super(address);
                if (window.broken === 0) {
                    window.broken += 1;
                    this.addEventListener("message", (event) => event.stopImmediatePropagation());
                    queueMicrotask(() => this.dispatchEvent(new Event("error")));
                }
            }
        };
    } });
    await settled(other);
    await other.select("#export-size", "1920x960");
    await press(other, "#export button[type=submit]");
    await jobReaches(other, "lens1-360.mov", ["finished"]);
    assert.equal(await other.evaluate(() => window.broken), 1);
    await says(other, "#title", "lens1-360.mov");
    await other.close();
});

await step("without WebGL the page says so", async () => {
    const other = await open(`${new URL(server.address).origin}/#moon_1.jpg`, { before: () => {
        HTMLCanvasElement.prototype.getContext = () => null;
    } });
    await says(other, "#message", "it has no WebGL 2");
    await other.close();
});

await step("whoever is kept out, or alone, is told what to do", async () => {
    const other = await open(server.address, { expected: /Failed to load resource/ });
    await listed(other, "made.jpg");
    await other.deleteCookie(...await other.cookies());
    await says(other, "#status", "nq360 view has begun anew: open the address that it prints");
    await server.end();
    await says(other, "#status", "The server does not answer. When nq360 view runs again, open the address");
    await other.close();
});

await step("read-only: what is adjusted stays on the page, and why nothing is exported is told", async () => {
    const before = keptYaw("globe_1.jpg");
    const only = await serve(folder, "--read-only");
    const other = await open(only.address);
    await listed(other, "moon_1.jpg");
    await choose(other, "globe_1.jpg +");
    await type(other, "#adjust-yaw", "50");
    await choose(other, "moon_1.jpg");
    await relists(other, 2);
    await choose(other, "globe_1.jpg +");
    assert.equal(await valueOf(other, "#adjust-yaw"), "50");
    assert.equal(await asked(other, "PUT"), 0);
    assert.equal(keptYaw("globe_1.jpg"), before);
    await says(other, "#room", "--read-only");
    assert.ok(await other.$eval("#export button[type=submit]", (one) => one.disabled));
    await other.close();
    await only.end();
});

await finish();
