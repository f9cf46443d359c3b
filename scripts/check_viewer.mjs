// Opens a Trace Event Format file in speedscope, in headless Chromium, and
// fails unless the viewer imports it and shows at least one thread. Saves a
// screenshot of what it shows.
//
//     node check_viewer.mjs <node_modules> <export.json> <screenshot.png>
//
// speedscope and playwright-core come from <node_modules>; the browser is
// Debian's /usr/bin/chromium. A small HTTP server on the loopback serves the
// viewer and the export, since a page from file:// may not fetch a file.
import { createRequire } from 'node:module';
import http from 'node:http';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

const [modules, exportPath, screenshot] = process.argv.slice(2);
if (!modules || !exportPath || !screenshot) {
    console.error('usage: node check_viewer.mjs <node_modules> <export.json> <screenshot.png>');
    process.exit(2);
}
const require = createRequire(path.join(path.resolve(modules), 'x.js'));
const { chromium } = require('playwright-core');
const viewer = path.join(path.resolve(modules), 'speedscope', 'dist', 'release');

const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.json': 'application/json',
                '.wasm': 'application/wasm', '.png': 'image/png', '.woff2': 'font/woff2', '.ico': 'image/x-icon' };
const server = http.createServer((request, response) => {
    const url = decodeURIComponent(new URL(request.url, 'http://localhost').pathname);
    const file = url === '/export.json' ? path.resolve(exportPath) : path.join(viewer, path.normalize(url));
    if (!file.startsWith(viewer) && file !== path.resolve(exportPath)) {
        response.writeHead(403).end();
        return;
    }
    fs.readFile(file, (error, data) => {
        if (error) {
            response.writeHead(404).end();
            return;
        }
        response.writeHead(200, { 'Content-Type': types[path.extname(file)] || 'application/octet-stream' });
        response.end(data);
    });
});
await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
const base = `http://127.0.0.1:${server.address().port}`;

const profileDir = fs.mkdtempSync(path.join(os.tmpdir(), 'kelvo-viewer-'));
// A fresh profile: playwright passes it as --user-data-dir.
const browser = await chromium.launchPersistentContext(profileDir, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    viewport: { width: 1400, height: 800 },
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
           '--disable-background-networking', '--disable-component-update', '--disable-sync'],
});
let failure = null;
try {
    const page = await browser.newPage();
    const problems = [];
    page.on('dialog', async (dialog) => {
        problems.push(`dialog: ${dialog.message()}`);
        await dialog.dismiss();
    });
    page.on('pageerror', (error) => problems.push(`page error: ${error.message}`));
    page.on('console', (message) => {
        if (message.type() === 'error') {
            problems.push(`console error: ${message.text()}`);
        }
    });
    await page.goto(`${base}/index.html#profileURL=${encodeURIComponent(base + '/export.json')}`);
    // Once imported, the toolbar names the thread shown ("tid ..."), and a
    // view can be chosen.
    const shown = await page.waitForFunction(() => /tid \d+/.test(document.body.innerText),
                                             null, { timeout: 30000 }).then(() => true, () => false);
    let text = await page.evaluate(() => document.body.innerText);
    // The first thread is the demo's main thread, which only waits: the
    // screenshot shows the next one, a worker, when there is one ("n").
    const threads = text.match(/\((\d+)\/(\d+)\)/);
    if (shown && threads && Number(threads[2]) > 1) {
        await page.keyboard.press('n');
        await page.waitForFunction(() => /\(2\/\d+\)/.test(document.body.innerText), null, { timeout: 10000 })
            .catch(() => problems.push('the viewer does not move to the next thread'));
        text = await page.evaluate(() => document.body.innerText);
    }
    await page.screenshot({ path: screenshot });
    if (problems.length > 0) {
        failure = `the viewer reported: ${problems.join('; ')}`;
    } else if (/error|could not|failed/i.test(text) && !shown) {
        failure = `the viewer could not import the export: ${text.slice(0, 300)}`;
    } else if (!shown) {
        failure = `the viewer shows no thread; it shows: ${text.slice(0, 300)}`;
    } else {
        console.log(`check-viewer: speedscope imported ${threads ? threads[2] : 1} threads; screenshot ${screenshot}`);
    }
} finally {
    await browser.close();
    server.close();
    fs.rmSync(profileDir, { recursive: true, force: true });
}
if (failure) {
    console.error(`check-viewer: FAILED: ${failure}`);
    process.exit(1);
}
