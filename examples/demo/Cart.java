// The shop's cart: holds a fixed number of items and keeps their total.
package demo;

public class Cart {
    private final Item[] items;
    private int count;
    private int total;

    public Cart(int capacity) {
        items = new Item[capacity];
    }

    public void add(Item item) {
        if (count == items.length) {
            throw new CartFullException("the cart holds only " + items.length + " items"); // @cart-throw
        }
        items[count] = item;                                      // @cart-store
        count++;                                                  // @cart-count
        total += item.getPrice();                                 // @cart-total
    }

    public int getCount() {
        return count;
    }

    public int getTotal() {
        return total;
    }
}
