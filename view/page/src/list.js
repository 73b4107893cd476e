// The folder: its shots in order of capture, with thumbnails.
import { thumbnailAddress } from "./api.js";
import { byId, clock, make } from "./dom.js";

/** @typedef {import("./api.js").Shot} Shot */

const list = byId("list", HTMLUListElement);

/** @type {Map<string, {item: HTMLLIElement, version: string}>} */
const items = new Map();

/** @param {Shot} shot */
function kindOf(shot) {
    const words = { pair: "two lenses", panorama: "panorama", lone: "one lens", other: shot.type };
    return words[shot.kind];
}

/** @param {Shot} shot */
function marksOf(shot) {
    const marks = [make("span", { className: "tag" }, kindOf(shot))];
    if (shot.is360) {
        marks.push(make("span", { className: "tag" }, " 360"));
    }
    if (shot.damaged) {
        marks.push(make("span", { className: "bad" }, " damaged"));
    }
    return marks;
}

/** @param {Shot} shot */
function detailsOf(shot) {
    const pixels = shot.width > 0 ? `${shot.width}×${shot.height}` : "";
    const length = shot.seconds === null ? "" : clock(shot.seconds);
    return [shot.date, pixels, length].filter(Boolean).join(" · ");
}

/**
 * @param {Shot} shot
 * @param {(id: string) => void} choose
 */
function makeItem(shot, choose) {
    const picture = make("img", { alt: "", loading: "lazy", decoding: "async", src: thumbnailAddress(shot) });
    picture.addEventListener("error", () => picture.removeAttribute("src"), { once: true });
    const button = make(
        "button",
        { type: "button", className: "shot" },
        picture,
        make("span", {}, shot.files.join(" + ")),
        make("small", {}, ...marksOf(shot)),
        make("small", {}, detailsOf(shot)),
    );
    if (shot.why) {
        button.append(make("small", { className: "bad" }, shot.why));
    }
    button.addEventListener("click", () => choose(shot.id));
    return make("li", {}, button);
}

/** @param {Shot} shot */
const versionOf = (shot) => JSON.stringify([shot.version, shot.files, shot.why, shot.damaged, shot.kind]);

/**
 * The shot's item, made anew in its place when the shot has changed.
 * @param {Shot} shot
 * @param {(id: string) => void} choose
 */
function itemOf(shot, choose) {
    const version = versionOf(shot);
    const known = items.get(shot.id);
    if (known && known.version === version) {
        return known.item;
    }
    const item = makeItem(shot, choose);
    items.set(shot.id, { item, version });
    if (known) {
        const focused = known.item.contains(document.activeElement);
        known.item.replaceWith(item);
        if (focused) {
            item.querySelector("button")?.focus();
        }
    }
    return item;
}

/**
 * Shows these shots; what has not changed stays as it is, with its picture and the focus in it.
 * @param {Shot[]} shots
 * @param {(id: string) => void} choose
 */
export function showShots(shots, choose) {
    const there = new Set(shots.map((shot) => shot.id));
    for (const [id, { item }] of items) {
        if (!there.has(id)) {
            item.remove();
            items.delete(id);
        }
    }
    /** @type {Element|null} */
    let place = list.firstElementChild;
    for (const shot of shots) {
        const isHere = place !== null && items.get(shot.id)?.item === place;
        const item = itemOf(shot, choose);
        if (isHere) {
            place = item.nextElementSibling;
        } else {
            list.insertBefore(item, place);
        }
    }
}

/** @param {string} id */
export function markChosen(id) {
    for (const [other, { item }] of items) {
        item.firstElementChild?.setAttribute("aria-current", String(other === id));
    }
}

// Arrow keys go from shot to shot.
list.addEventListener("keydown", (event) => {
    const item = document.activeElement?.closest("li");
    const back = ["ArrowUp", "ArrowLeft"].includes(event.key);
    const on = ["ArrowDown", "ArrowRight"].includes(event.key);
    const next = back ? item?.previousElementSibling : on ? item?.nextElementSibling : null;
    const button = next?.firstElementChild;
    if (button instanceof HTMLElement) {
        event.preventDefault();
        button.focus();
    }
});
