// Tables can be sorted by a click on a column's name, and filtered by host. Without scripts they
// stand as they are: the most visited host first.
"use strict";
for (const table of document.querySelectorAll("table.sortable")) {
  const body = table.tBodies[0];
  const rows = Array.from(body.rows);
  const heads = Array.from(table.tHead.rows[0].cells);

  const valueOf = (row, column) => {
    const text = row.cells[column].textContent;
    return heads[column].classList.contains("number") ? Number(text.replace(/[^0-9.]/g, "")) : text;
  };
  const compare = (a, b) => a < b ? -1 : a > b ? 1 : 0;
  const sort = (column) => {
    const before = heads[column].getAttribute("aria-sort");
    // Large numbers are what one looks for; ranks and names begin at their beginning.
    const largeFirst = column > 1;
    const ascending = before ? before === "descending" : !largeFirst;
    heads.forEach((head) => head.removeAttribute("aria-sort"));
    heads[column].setAttribute("aria-sort", ascending ? "ascending" : "descending");
    rows.sort((a, b) => compare(valueOf(a, column), valueOf(b, column)) * (ascending ? 1 : -1));
    body.append(...rows);
  };
  heads.forEach((head, column) => {
    const button = document.createElement("button");
    button.type = "button";
    button.append(...head.childNodes);
    button.addEventListener("click", () => sort(column));
    head.append(button);
  });
  heads[0].setAttribute("aria-sort", "ascending");

  const tools = document.createElement("div");
  const label = document.createElement("label");
  const input = document.createElement("input");
  const shown = document.createElement("output");
  tools.className = "tools";
  label.append("Hosts with ", input);
  input.type = "search";
  input.addEventListener("input", () => {
    const part = input.value.trim().toLowerCase();
    for (const row of rows) {
      row.hidden = !row.cells[1].textContent.toLowerCase().includes(part);
    }
    shown.textContent = part ? rows.filter((row) => !row.hidden).length + " of " + rows.length : "";
  });
  tools.append(label, shown);
  table.before(tools);
}
